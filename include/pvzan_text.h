/* pvzan_text.h - convert text strictly: every character comes through unharmed, or you are told.
 *
 * Link with libPVZAN.so.1 of version 1.1 or later. This header is plain C99 and compiles as C++. It
 * needs nothing of pvzan.h, and any language that can call C can use it: a handle, numbers of fixed
 * width, buffers with their sizes, no callback, no record that the caller must lay out twice.
 *
 * INTRODUCTION
 *
 * pvzan_open makes a converter from one charset to another, by the names people use for them.
 * pvzan_feed moves text through it: it takes input, in pieces cut anywhere, and writes output into
 * whatever room there is. It stops at a fault: bytes that are no character, a character that the
 * target lacks, one that would come back as another. Nothing of a faulty character has been written
 * then. The caller stops too, or has something written in its place with pvzan_answer, and goes on.
 * Whatever the pieces and the room, text and faults are the same.
 *
 * A complete conversion of a stream; what is at fault is told, and a substitute stands for it:
 *
 *     int convert_stream(FILE *source, FILE *target, const char *from, const char *to)
 *     {
 *         uint8_t in[65536], out[65536];
 *         pvzan_error e = {.size = sizeof e};
 *         pvzan_converter *c = pvzan_open(from, to, NULL, &e);
 *         pvzan_outcome said = PVZAN_FEED_MORE_INPUT;
 *
 *         if (c == NULL) {
 *             fprintf(stderr, "%s\n", e.text);
 *             return -1;
 *         }
 *         while (said == PVZAN_FEED_MORE_INPUT) {
 *             const uint8_t *next = in;
 *             size_t left = fread(in, 1, sizeof in, source);
 *             if (ferror(source))
 *                 break;
 *             do {
 *                 uint8_t *end = out;
 *                 size_t room = sizeof out;
 *                 int32_t how = feof(source) ? PVZAN_LAST : PVZAN_PART;
 *                 said = pvzan_feed(c, &next, &left, &end, &room, how);
 *                 if (said == PVZAN_FEED_FAULT) {
 *                     pvzan_fault f = {.size = sizeof f};
 *                     pvzan_last_fault(c, &f);
 *                     fprintf(stderr, "%" PRIu64 ":%" PRIu64 ": %s\n", f.line, f.column, f.why);
 *                     pvzan_answer(c, PVZAN_SUBSTITUTE, NULL, NULL, &end, &room);
 *                 }
 *                 fwrite(out, 1, (size_t)(end - out), target);
 *             } while (said == PVZAN_FEED_MORE_ROOM || said == PVZAN_FEED_FAULT);
 *         }
 *         pvzan_close(c);
 *         return said == PVZAN_FEED_DONE && !ferror(target) ? 0 : -1;
 *     }
 *
 * WHAT TO KNOW BEFORE RELYING ON IT
 *
 * - A character comes through when the target has a code for it that reads back as the same
 *   character. What a charset means is what its definition says: a charset of one's own is treated
 *   as strictly as those that come with the library.
 * - How many bytes a fault is follows the decoders of the WHATWG's Encoding Standard: what they
 *   replace by one U+FFFD. It never takes in a byte of ASCII that may be a character.
 * - Places count from the start of the text: bytes from 0; lines and columns from 1. A column is a
 *   character of the source, and so is each fault; a byte-order mark is none. CR, LF and CR LF end
 *   a line.
 * - ASCII stays what it is in charsets that begin in ASCII: ISO-2022-JP has no escape sequence
 *   where nothing changes.
 * - A byte-order mark at the start of a text is read away where the source may have one, and is
 *   written where the target's name leaves the byte order open, or as the options say.
 * - Sizes are bytes, as size_t; places are 64-bit also on 32-bit machines.
 * - Records begin with their size, which the caller sets before each call: a library that is newer
 *   or older then fills in, or reads, what both know. A field that the library does not know and
 *   that is not 0 is refused. Constants never change.
 * - Texts that are returned in records are UTF-8, end in a NUL, and are cut where they are too
 * long.
 *
 * OWNERSHIP
 *
 * A converter is the caller's, and ends with pvzan_close. It takes some 20 KB; after pvzan_open no
 * call on it needs more. (What the library keeps for all converters, to be fast, grows with what
 * it meets, within the bounds that pvzan.h tells, and where there is no memory is done without.)
 * Opening costs a fraction of a microsecond once the two charsets have been
 * used in the process, and some milliseconds the first time; pvzan_reset begins another text. The
 * library keeps no pointer to anything of the caller's from one call to the next.
 *
 * THREADS
 *
 * A converter is used by one thread at a time; different ones run on different threads at once. All
 * other calls may be made by any thread at any time. A fork takes converters along.
 */
#ifndef PVZAN_TEXT_H
#define PVZAN_TEXT_H

#include <stddef.h>
#include <stdint.h>

#if defined(__GNUC__)
#define PVZAN_TEXT_API __attribute__((visibility("default")))
#else
#define PVZAN_TEXT_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Numbers -------------------------------------------------------------------------------- */

/* What pvzan_feed, pvzan_answer and pvzan_convert say. */
typedef int32_t pvzan_outcome;
enum {
    PVZAN_FEED_DONE = 0,
    PVZAN_FEED_MORE_INPUT = 1, /* all input is taken */
    PVZAN_FEED_MORE_ROOM = 2,  /* call again with more room */
    PVZAN_FEED_FAULT = 3,      /* pvzan_last_fault tells which */
    PVZAN_FEED_MISUSE = -1     /* a null pointer, an unknown number, a text that has ended */
};

/* How pvzan_feed is to take the input. */
enum {
    PVZAN_PART = 0, /* more follows */
    PVZAN_LAST = 1, /* the text ends with it */
    PVZAN_FLUSH = 2 /* more follows later; write what is held back, and return to ASCII */
};

/* Kinds of faults. */
enum {
    PVZAN_FAULT_INVALID = 1,    /* bytes that are no character of the source */
    PVZAN_FAULT_CUT = 2,        /* the text ends inside a character */
    PVZAN_FAULT_MISSING = 3,    /* the target has no such character */
    PVZAN_FAULT_OTHER_BACK = 4, /* the target's code for it reads back as something else */
    PVZAN_FAULT_LEFT_OPEN = 5   /* the text ends in a set of two-byte codes */
};

/* Why bytes are invalid. */
enum {
    PVZAN_REASON_NONE = 0,
    PVZAN_REASON_BEGINS_NOTHING = 1, /* no character begins with this byte */
    PVZAN_REASON_CANNOT_FOLLOW = 2,  /* the last of the blamed bytes does not fit those before */
    PVZAN_REASON_BROKEN_OFF = 3,     /* the next byte does not continue the blamed ones */
    PVZAN_REASON_NO_CHARACTER = 4,   /* well-formed, and nothing stands there */
    PVZAN_REASON_HALF_PAIR = 5,      /* one half of a surrogate pair */
    PVZAN_REASON_ESCAPE = 6          /* an escape sequence of no known set */
};

/* What is done with a fault. */
enum {
    PVZAN_TELL = 0,       /* in the options: pvzan_feed says PVZAN_FEED_FAULT */
    PVZAN_DROP = 1,       /* write nothing for it */
    PVZAN_SUBSTITUTE = 2, /* the options' substitute */
    PVZAN_REFERENCE = 3,  /* &#x20BB7; where there is a character, else as PVZAN_HEX */
    PVZAN_HEX = 4,        /* the bytes of the source, <82> */
    PVZAN_WRITE_UTF8 = 5, /* pvzan_answer alone: a text in UTF-8 */
    PVZAN_WRITE_RAW = 6   /* pvzan_answer alone: bytes, as they are */
};

/* Codes of a pvzan_error. */
enum {
    PVZAN_ERROR_NONE = 0,
    PVZAN_ERROR_NO_DIRECTORY = 1, /* there is no charset directory, or nothing in it */
    PVZAN_ERROR_UNKNOWN_FROM = 2, /* no such charset; the text may say which is like it */
    PVZAN_ERROR_UNKNOWN_TO = 3,
    PVZAN_ERROR_OPTION = 4, /* a number or a size that is none, or a substitute the target lacks */
    PVZAN_ERROR_NO_MEMORY = 5,
    PVZAN_ERROR_DEFINITION = 6, /* of pvzan_check_definition */
    PVZAN_ERROR_TOO_LATE = 7    /* the charset directory is settled already */
};

/* Flags of pvzan_open_options, and of pvzan_resolve (the labels alone). */
enum {
    PVZAN_LOOK_ALIKES = 1, /* take a character's look-alike where the target lacks it, and count */
    PVZAN_COMPOSE = 2,     /* a letter and its marks as one character, where the target has that */
    PVZAN_READ_BACK = 4,   /* codes, too, must come back: a second code of a character does not */
    PVZAN_BROWSER_LABELS = 8, /* names mean what they mean to browsers: shift_jis is windows-31j */
    PVZAN_LEAVE_INPUT = 16,   /* cut and faulty bytes stay in the input, see pvzan_feed */
    PVZAN_COUNT_PRIVATE_USE = 32, /* private_use of the counts, where one side is Unicode */
    PVZAN_OFFSETS_ALONE = 64 /* lines and columns stay 1: ASCII takes half the time without them */
};

/* Byte orders. */
enum { PVZAN_ORDER_BY_NAME = 0, PVZAN_ORDER_BIG = 1, PVZAN_ORDER_LITTLE = 2 };

/* Byte-order marks of the output. */
enum {
    PVZAN_MARK_BY_NAME = 0, /* where the target's name leaves the byte order open */
    PVZAN_MARK_KEEP = 1,    /* where the source has one, and the target is Unicode */
    PVZAN_MARK_ADD = 2,     /* where the target is Unicode */
    PVZAN_MARK_STRIP = 3
};

/* Line breaks of the output. CR, LF and CR LF are breaks; U+0085, U+2028 and U+2029 stay. */
enum { PVZAN_BREAKS_AS_FOUND = 0, PVZAN_BREAKS_LF = 1, PVZAN_BREAKS_CRLF = 2, PVZAN_BREAKS_CR = 3 };

/* What a charset's codes are. */
enum {
    PVZAN_KIND_OTHER = 0,
    PVZAN_KIND_UTF_8 = 1,
    PVZAN_KIND_UTF_16 = 2,
    PVZAN_KIND_UCS_2 = 3,
    PVZAN_KIND_UCS_4 = 4
};

/* What a guess says. */
enum {
    PVZAN_GUESS_NONE = 0,   /* no candidate fits */
    PVZAN_GUESS_SURE = 1,   /* the first candidate */
    PVZAN_GUESS_UNSURE = 2, /* another is not far behind, or the first one has a fault */
    PVZAN_GUESS_BINARY = 3  /* no text: what it is stands in the words */
};

/* ---- Records -------------------------------------------------------------------------------- */

typedef struct pvzan_converter pvzan_converter;
typedef struct pvzan_guesser pvzan_guesser;

/* What is wrong with a text, and where. */
typedef struct pvzan_fault {
    uint32_t size;
    uint32_t kind;   /* PVZAN_FAULT_... */
    uint32_t reason; /* PVZAN_REASON_..., of invalid bytes */
    uint32_t length; /* its bytes in the source, which are stepped over; 0 for a set left open */
    uint64_t offset; /* of its first byte */
    uint64_t line, column;
    uint32_t blamed;        /* how many bytes the words are about: not always length */
    int32_t follower;       /* the byte behind those; -1: unknown, or none */
    uint32_t scalars_count; /* a character's scalar and a mark that stands in the same code */
    uint32_t scalars[2];
    uint32_t back_count; /* what it would come back as; with PVZAN_READ_BACK in other bytes, too */
    uint32_t back[2];
    uint32_t back_bytes_count;
    uint32_t look_alike; /* what the target has that looks like it; 0: nothing */
    uint8_t back_bytes[8];
    uint8_t bytes[16]; /* the first of its bytes, blamed or length of them, whichever is more */
    char why[192];     /* in words, without the place */
    char relative[64]; /* the name of a charset that has what this one lacks; where a control code
                          of U+0080 to U+009F is missing, that has a character there; or empty */
} pvzan_fault;

typedef struct pvzan_error {
    uint32_t size;
    int32_t code;          /* PVZAN_ERROR_... */
    uint64_t line, column; /* in a file, from 1; 0: nowhere in it */
    char text[256];        /* in words */
    char file[256];        /* of pvzan_check_definition: the file's name */
} pvzan_error;

/* All 0 but size: strict; byte orders, marks and line breaks as the names and the text have them.
 */
typedef struct pvzan_open_options {
    uint32_t size, flags;
    uint32_t from_order, to_order; /* PVZAN_ORDER_..., for codes of several bytes */
    uint32_t mark, breaks;         /* PVZAN_MARK_..., PVZAN_BREAKS_... */
    /* PVZAN_TELL to PVZAN_HEX: done inside, and counted. on_missing is for OTHER_BACK, on_cut for
     * LEFT_OPEN, too. */
    uint32_t on_invalid, on_missing, on_cut;
    uint32_t substitute;  /* a scalar; 0: U+FFFD, U+3013 or "?", what the target has */
    uint64_t most_faults; /* from the next one on faults are told; 0: no limit */
} pvzan_open_options;

/* What came through so far. */
typedef struct pvzan_counts {
    uint32_t size, reserved;
    uint64_t in, out;     /* bytes; in is behind the last character or fault that was dealt with */
    uint64_t characters;  /* of the source, without faulty bytes */
    uint64_t faults;      /* answered, or done inside */
    uint64_t look_alikes; /* written */
    uint64_t composed;    /* characters written for a letter and its marks */
    uint64_t private_use; /* characters that mean what two parties have agreed upon */
    /* Behind in, as a fault there would be told; 0 when the text has ended. */
    uint64_t line, column;
} pvzan_counts;

/* A charset's name and what it means. */
typedef struct pvzan_name {
    uint32_t size;
    uint32_t kind;  /* PVZAN_KIND_... */
    uint32_t unit;  /* bytes of a code unit */
    uint32_t order; /* PVZAN_ORDER_...: the order that is written, and read without a mark */
    uint32_t mark;  /* 0: no mark is written unless asked for; 1: the name leaves the order open, a
                       mark is written, and either one read; 2: a mark of that order is written */
    uint32_t exact; /* 0: the library lacks the very charset, this is one that holds all of it */
    char charset[64]; /* as the charset directory has it */
    char shown[64];   /* as messages write it */
    char group[64];   /* "Japanese", "Cyrillic" ...: where a list has it; or empty */
} pvzan_name;

typedef struct pvzan_candidate {
    uint32_t size, per_million; /* how likely it is beside the others */
    pvzan_name name;
    char reading[96]; /* how it reads the first place where the likeliest two differ; or empty */
} pvzan_candidate;

/* How a guess ended. */
typedef struct pvzan_guess_result {
    uint32_t size;
    uint32_t verdict; /* PVZAN_GUESS_... */
    uint32_t mark;    /* 1: the text begins with a byte-order mark */
    uint32_t reserved;
    uint64_t doubt; /* the byte where the likeliest two readings differ first, or that is invalid in
                       the likeliest; UINT64_MAX: no such place */
    char why[256];  /* what decided, or what kind of file it is; or empty */
} pvzan_guess_result;

/* How a text was read with wrong charsets, and saved: the last reading first. */
typedef struct pvzan_misreading {
    uint32_t size, steps; /* how many readings there were, up to 3 */
    char was[3][64];      /* the charset that the bytes were in */
    char read_as[3][64];  /* and the one that they were read with */
    char words[256];      /* "UTF-8 read as Windows-1252, twice" */
} pvzan_misreading;

/* ---- Conversion ----------------------------------------------------------------------------- */

/* The version of the library that runs: 0x010100 is 1.1.0. */
PVZAN_TEXT_API uint32_t pvzan_text_version(void);

/* Makes a converter from one charset to another, of names in ASCII that end in a NUL, as
 * pvzan_resolve knows them. options may be null (all 0). NULL: it could not be made; error, unless
 * null, says why. The first call of the process settles the charset directory, see
 * pvzan_set_directory. */
PVZAN_TEXT_API pvzan_converter* pvzan_open(const char* from, const char* to,
                                           const pvzan_open_options* options, pvzan_error* error);

/* Converts *left bytes at *in into *room bytes at *out, and moves all four behind what was done.
 *   PVZAN_FEED_MORE_INPUT  All input is taken, an unfinished character too. Not behind PVZAN_LAST.
 *   PVZAN_FEED_MORE_ROOM   Call again with more room and the input that is left. Any room makes
 *                          progress, one byte too.
 *   PVZAN_FEED_FAULT       What is before it has been written, nothing of it; *in stands behind it,
 *                          and is said again, moving nothing, until pvzan_answer was called.
 *   PVZAN_FEED_DONE        Behind PVZAN_LAST: the text has ended, and its set is closed; what
 *                          follows is PVZAN_FEED_MISUSE until pvzan_reset. Behind PVZAN_FLUSH: all
 *                          is written but an unfinished character.
 * The end of a text may be fed with no input. in may be null where left is 0, out where room is.
 * Input and output must not overlap.
 *
 * With PVZAN_LEAVE_INPUT, as iconv(3) needs it: a character that does not fit the room is not
 * written in part and stays in the input; so do a cut character (PVZAN_FEED_MORE_INPUT, with bytes
 * left) and a faulty one, which needs no answer: the caller steps over as many bytes as the fault
 * is long, else later places are not right, or gives up. Letters whose mark may follow are taken
 * and held back all the same. A byte-order mark is only read away where the source's name leaves
 * the order open. */
PVZAN_TEXT_API pvzan_outcome pvzan_feed(pvzan_converter* converter, const uint8_t** in,
                                        size_t* left, uint8_t** out, size_t* room, int32_t how);

/* Has something written in place of the fault that pvzan_feed told, PVZAN_DROP to
 * PVZAN_WRITE_RAW, and lets the text go on. For the first four text and left may be null; what
 * out has no room for is written by the next pvzan_feed, so that out may be null, too.
 *   PVZAN_FEED_DONE        All is taken.
 *   PVZAN_FEED_MORE_ROOM   Call again with the rest of text; the fault stays.
 *   PVZAN_FEED_FAULT       The target lacks a character of text, or it is not UTF-8: nothing was
 *                          written and the fault stays.
 *   PVZAN_FEED_MISUSE      There is no fault. */
PVZAN_TEXT_API pvzan_outcome pvzan_answer(pvzan_converter* converter, int32_t how,
                                          const uint8_t** text, size_t* left, uint8_t** out,
                                          size_t* room);

/* Copies the fault that was told last; fault->size is set by the caller. 1; 0: there is none, or a
 * null pointer. It can be had until the next pvzan_feed that moves on, behind pvzan_answer, too. */
PVZAN_TEXT_API int32_t pvzan_last_fault(const pvzan_converter* converter, pvzan_fault* fault);

/* Copies, of the fault that was told last, the place and what is wrong, in words: "2:5: invalid
 * UTF-8: ff is not a lead byte", or "byte 7: " before them where lines are not counted. For
 * languages that have no use for the record. Returns the length without the NUL, also where room
 * does not suffice, 255 at most; 0: there is none. */
PVZAN_TEXT_API size_t pvzan_explain(const pvzan_converter* converter, char* text, size_t room);

/* Copies the counts; counts->size is set by the caller. With a null pointer nothing happens. */
PVZAN_TEXT_API void pvzan_count(const pvzan_converter* converter, pvzan_counts* counts);

/* Room that suffices for all that in_size more bytes and the end of the text can come to, in one
 * pvzan_feed, with every fault dropped, substituted, referred to or written in hex; SIZE_MAX where
 * that is more than a size_t holds. */
PVZAN_TEXT_API size_t pvzan_most(const pvzan_converter* converter, size_t in_size);

/* Writes where the conversion stands, between two calls of pvzan_feed: held bytes, sets, places and
 * counts. Returns the size, 512 at most; to is written where room suffices. Not while a fault waits
 * for an answer: 0. */
PVZAN_TEXT_API size_t pvzan_save(const pvzan_converter* converter, uint8_t* to, size_t room);

/* Goes on where pvzan_save was, with a converter of the same charsets and options in the same
 * version of the library: 1; 0: this is nothing of the kind, and nothing has changed. */
PVZAN_TEXT_API int32_t pvzan_restore(pvzan_converter* converter, const uint8_t* from, size_t size);

/* Whether what follows would be converted as from where saved was made: 1; 0: sets, held bytes or
 * the like differ, or this is nothing of the kind. Places and counts may. */
PVZAN_TEXT_API int32_t pvzan_stands_as(const pvzan_converter* converter, const uint8_t* saved,
                                       size_t size);

/* What escape sequences and shifts of the source have designated up to here, as a number that fits
 * into a file position; 0 where a text begins, and in charsets without them. It is all there is to
 * reading on from here later, where nothing is held back. */
PVZAN_TEXT_API uint64_t pvzan_shift(const pvzan_converter* converter);

/* Begins a text there, with a converter from the same charset: 1; 0: there is no such number, and
 * nothing has changed. Places and counts begin anew. */
PVZAN_TEXT_API int32_t pvzan_begin_in(pvzan_converter* converter, uint64_t shift);

/* Begins another text: as opened, places and counts too. What an unfinished text held back, and a
 * fault that waits, are forgotten. Null is fine. */
PVZAN_TEXT_API void pvzan_reset(pvzan_converter* converter);

/* Ends a converter and gives its memory back, in the middle of a text, too. Null is fine. */
PVZAN_TEXT_API void pvzan_close(pvzan_converter* converter);

/* Converts a whole text, which it begins and ends itself. Returns the size of the result, also
 * where room is less: then PVZAN_FEED_MORE_ROOM, and what is in out is of no use. With
 * PVZAN_FEED_FAULT, the size of what is before the fault. outcome may be null. */
PVZAN_TEXT_API size_t pvzan_convert(pvzan_converter* converter, const uint8_t* in, size_t in_size,
                                    uint8_t* out, size_t room, pvzan_outcome* outcome);

/* Converts rows texts that lie one behind the other, as Arrow has them: text i from offsets[i] to
 * offsets[i + 1] in the in_size bytes at in; offsets and out_offsets are rows + 1 numbers of
 * offset_bytes bytes, 4 (int32_t) or 8 (int64_t). Each is a text of its own. A row with a fault
 * that is told comes out empty, and its kind stands in fault_kinds[i], unless null; 0 for all
 * others. Returns how many rows were done: fewer where out has no more room, or its offsets would
 * not fit. Null pointers and offsets that decrease or lead behind in_size end it, too. */
PVZAN_TEXT_API size_t pvzan_convert_rows(pvzan_converter* converter, const uint8_t* in,
                                         size_t in_size, const void* offsets, size_t rows,
                                         uint8_t* out, size_t room, void* out_offsets,
                                         uint32_t offset_bytes, uint8_t* fault_kinds);

/* ---- Names ---------------------------------------------------------------------------------- */

/* What a name means. Case, "-", "_" and blanks do not count. flags: 0 or PVZAN_BROWSER_LABELS.
 * meaning->size is set by the caller. 1; or 0: no such charset, and shown then holds a name that is
 * like it, or nothing. */
PVZAN_TEXT_API int32_t pvzan_resolve(const char* name, uint32_t flags, pvzan_name* meaning);

/* The charsets of the directory, from index 0 on, those people name most before others;
 * charset->size is set by the caller. 1; 0 behind the last. */
PVZAN_TEXT_API int32_t pvzan_each_charset(size_t index, pvzan_name* charset);

/* Other names of a charset, which is given as the directory has it: 1; 0 behind the last, or where
 * room does not suffice; 64 always does. */
PVZAN_TEXT_API int32_t pvzan_each_name(const char* charset, size_t index, char* name, size_t room);

/* ---- The charset directory ------------------------------------------------------------------ */

/* Settles the charset directory, before everything else: 1; 0, and error unless null says why.
 * Without it the first use takes the first that exists of: what ZAN_setCharsetPath was given; the
 * environment variable PVZAN_CHARSET_DIR, unless the program runs with another user's rights;
 * pvzan/base2 beside the loaded library; base2 beside the library's own directory; the one of the
 * installation. Never one in the current directory, where anybody's definitions may lie. */
PVZAN_TEXT_API int32_t pvzan_set_directory(const char* path, pvzan_error* error);

/* Copies the path of the charset directory, and settles it; its length, without the NUL, also where
 * room does not suffice; 0: there is none. */
PVZAN_TEXT_API size_t pvzan_directory(char* path, size_t room);

/* Why the library does not take a definition of the charset directory, or what is wrong with the
 * files it names; of a path, the last part counts, and "further/" where that is all before it.
 * Fills in up to most errors and returns how many there are; 0: it is sound. The stride of errors
 * is errors[0].size, which the caller sets. */
PVZAN_TEXT_API size_t pvzan_check_definition(const char* path, pvzan_error* errors, size_t most);

/* ---- Guessing -------------------------------------------------------------------------------
 *
 * Every charset of the list of names is a candidate. One that cannot read the text is none any
 * more; the others' readings are weighed as writing in the languages that the library knows. Where
 * no reading is far ahead the guess is unsure, and a program had better ask its user than convert.
 */

/* Begins a guess. among: names parted by commas, which are all that it may be; null: everything.
 * language: the user's, as LANG has it, which counts where readings stay close; null: that of
 * LC_ALL, LC_CTYPE or LANG. NULL: there is no memory, or no charset directory. */
PVZAN_TEXT_API pvzan_guesser* pvzan_guess_open(const char* among, const char* language);

/* Takes the next piece of the text, of any size: 1; 0: what follows changes nothing any more. */
PVZAN_TEXT_API int32_t pvzan_guess_feed(pvzan_guesser* guesser, const uint8_t* bytes, size_t size);

/* Decides, once. complete: 0 where the text goes on. Fills in the result, unless null, and up to
 * most candidates, the likeliest first, whose stride is candidates[0].size; returns how many there
 * are. Of candidates that read the same there is one. */
PVZAN_TEXT_API size_t pvzan_guess_end(pvzan_guesser* guesser, int32_t complete,
                                      pvzan_guess_result* result, pvzan_candidate* candidates,
                                      size_t most);

/* Null is fine. */
PVZAN_TEXT_API void pvzan_guess_close(pvzan_guesser* guesser);

/* The same for a text in memory, in one call; returns the verdict. The name of the likeliest
 * candidate stands in likeliest, unless null; a charset only where the verdict is PVZAN_GUESS_SURE
 * or PVZAN_GUESS_UNSURE. */
PVZAN_TEXT_API int32_t pvzan_guess(const uint8_t* bytes, size_t size, int32_t complete,
                                   pvzan_name* likeliest);

/* ---- Repair ---------------------------------------------------------------------------------
 *
 * Text that was read with a wrong charset and saved as UTF-8, such as "Ã©" for "é", has an exact
 * way back, line by line, where nothing was lost. Bytes that the wrong charset lacks count as the
 * control codes that browsers make of them.
 */

/* Whether the text, in UTF-8, looks like one: 1, and found tells how it came about. 0: it is
 * plausible as it is, or what happened is not clear. */
PVZAN_TEXT_API int32_t pvzan_find_misreading(const uint8_t* text, size_t size,
                                             pvzan_misreading* found);

/* Undoes the readings in every line that has an exact way back; other lines stay as they are.
 * Copies what fits into room, and returns the size of all: up to three times as much as before, and
 * 0 where the misreading is none, or there is no memory. undone, unless null: how many lines. */
PVZAN_TEXT_API size_t pvzan_undo_misreading(const pvzan_misreading* misreading, const uint8_t* text,
                                            size_t size, uint8_t* to, size_t room,
                                            uint64_t* undone);

#ifdef __cplusplus
}
#endif
#endif
