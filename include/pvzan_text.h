/* pvzan_text.h - convert text strictly: every character is converted unharmed, or reported.
 *
 * Link with libPVZAN.so.1 of version 1.1 or later. This header is C99, compiles as C++, and needs
 * nothing of pvzan.h. Any language that can call C can use it: it has a handle, numbers of fixed
 * width and buffers with their sizes, but no callbacks.
 *
 * INTRODUCTION
 *
 * pvzan_open creates a converter between two charsets, by their common names. pvzan_feed converts
 * text with it: it takes input in pieces that may be cut anywhere, and writes output into whatever
 * room there is. It stops at a fault: invalid bytes, a character that the target lacks, or one that
 * would come back as a different one. Nothing of a faulty character has been written then. The
 * caller either stops, too, or chooses with pvzan_answer what to write instead, and continues. The
 * result does not depend on how the text is cut, or on the room.
 *
 * A complete conversion of a stream, which reports faults and writes a substitute for each:
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
 * - A character is converted if the target has a code for it that is read back as the same
 *   character. The meaning of a charset is what its definition says, so your own charsets are
 *   treated as strictly as those that come with the library.
 * - A fault is as long as what decoders of the WHATWG's Encoding Standard replace by one U+FFFD,
 *   but never includes an ASCII byte that can be a character, as theirs may at the end of GB18030.
 * - Places are relative to the start of the text: bytes from 0, lines and columns from 1. Each
 *   character of the source is a column, and so is each fault, but not a byte-order mark. CR, LF
 *   and CR LF end a line.
 * - Charsets that begin in ASCII leave ASCII alone; ISO-2022-JP has no needless escape sequence.
 * - A byte-order mark at the start of a text is skipped if the source may have one. It is written
 *   if the target's name leaves the byte order open, or as the options say.
 * - Sizes are bytes, as size_t; places are 64-bit numbers, also on 32-bit machines.
 * - Records begin with their size, which the caller sets before each call: an older or newer
 *   library then reads and sets only the fields that both know. A field that is not 0 and that the
 *   library does not know is refused. Constants never change.
 * - Texts that are returned in records are UTF-8, end in a NUL, and are cut if they are too long.
 *
 * OWNERSHIP
 *
 * A converter is the caller's, and ends with pvzan_close. It takes some 21 KB; after pvzan_open no
 * call on it needs more. (What the library keeps for all converters, to be fast, grows with what
 * it meets, within the bounds that pvzan.h tells; without memory it is only slower.) Opening costs
 * about a microsecond once the two charsets have been used in the process, and some milliseconds
 * the first time; pvzan_reset begins another text. Between two calls the library keeps no pointer
 * to anything of the caller's.
 *
 * THREADS
 *
 * A converter must be used by one thread at a time; threads may use different ones at once. All
 * other calls may be made by any thread at any time. After a fork the child can use its copies.
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

/* Results of pvzan_feed, pvzan_answer and pvzan_convert. */
typedef int32_t pvzan_outcome;
enum {
    PVZAN_FEED_DONE = 0,
    PVZAN_FEED_MORE_INPUT = 1, /* all input has been taken */
    PVZAN_FEED_MORE_ROOM = 2,  /* call again with more room */
    PVZAN_FEED_FAULT = 3,      /* pvzan_last_fault tells which */
    PVZAN_FEED_MISUSE = -1     /* a null pointer, an unknown number, a text that has ended */
};

/* What follows the input of pvzan_feed. */
enum {
    PVZAN_PART = 0, /* more text */
    PVZAN_LAST = 1, /* nothing: it is the end of the text */
    PVZAN_FLUSH = 2 /* more text, but later; write what is held back, and return to ASCII */
};

/* Kinds of faults. */
enum {
    PVZAN_FAULT_INVALID = 1,    /* bytes that are not a character of the source */
    PVZAN_FAULT_CUT = 2,        /* the text ends inside a character */
    PVZAN_FAULT_MISSING = 3,    /* the target has no such character */
    PVZAN_FAULT_OTHER_BACK = 4, /* the target's code for it is read back as another character */
    PVZAN_FAULT_LEFT_OPEN = 5   /* the text ends without returning to the initial set */
};

/* Why bytes are invalid. */
enum {
    PVZAN_REASON_NONE = 0,
    PVZAN_REASON_BEGINS_NOTHING = 1, /* no character begins with this byte */
    PVZAN_REASON_CANNOT_FOLLOW = 2,  /* the last of the blamed bytes does not fit those before */
    PVZAN_REASON_BROKEN_OFF = 3,     /* the next byte does not continue the blamed ones */
    PVZAN_REASON_NO_CHARACTER = 4,   /* well-formed, but no character is assigned */
    PVZAN_REASON_HALF_PAIR = 5,      /* one half of a surrogate pair */
    PVZAN_REASON_ESCAPE = 6          /* an unknown escape sequence */
};

/* What to do with a fault. */
enum {
    PVZAN_TELL = 0,       /* only in the options: pvzan_feed returns PVZAN_FEED_FAULT */
    PVZAN_DROP = 1,       /* write nothing */
    PVZAN_SUBSTITUTE = 2, /* write the substitute of the options */
    PVZAN_REFERENCE = 3,  /* write &#x20BB7; for a character, or else like PVZAN_HEX */
    PVZAN_HEX = 4,        /* write the bytes of the source as <82> */
    PVZAN_WRITE_UTF8 = 5, /* only in pvzan_answer: write a text in UTF-8 */
    PVZAN_WRITE_RAW = 6   /* only in pvzan_answer: write bytes unchanged */
};

/* Codes of a pvzan_error. */
enum {
    PVZAN_ERROR_NONE = 0,
    PVZAN_ERROR_NO_DIRECTORY = 1, /* there is no charset directory, or it is empty */
    PVZAN_ERROR_UNKNOWN_FROM = 2, /* no such charset; the text may suggest a similar name */
    PVZAN_ERROR_UNKNOWN_TO = 3,
    PVZAN_ERROR_OPTION = 4, /* an unknown number or size, or a substitute that the target lacks */
    PVZAN_ERROR_NO_MEMORY = 5,
    PVZAN_ERROR_DEFINITION = 6, /* of pvzan_check_definition */
    PVZAN_ERROR_TOO_LATE = 7    /* the charset directory has already been chosen */
};

/* Flags of pvzan_open_options; PVZAN_BROWSER_LABELS is also one of pvzan_resolve. */
enum {
    PVZAN_LOOK_ALIKES = 1, /* write a look-alike if the target lacks the character; counted */
    PVZAN_COMPOSE = 2,     /* write a letter and its marks as one character if the target has it */
    PVZAN_READ_BACK = 4,   /* codes must come back, too: a character's second code is a fault */
    PVZAN_BROWSER_LABELS = 8, /* names mean what they mean to browsers: shift_jis is windows-31j */
    PVZAN_LEAVE_INPUT = 16,   /* cut and faulty bytes stay in the input; see pvzan_feed */
    PVZAN_COUNT_PRIVATE_USE = 32, /* count private_use, if source or target is Unicode */
    PVZAN_OFFSETS_ALONE = 64 /* lines and columns stay 1, which saves some time in short pieces */
};

/* Byte orders. */
enum { PVZAN_ORDER_BY_NAME = 0, PVZAN_ORDER_BIG = 1, PVZAN_ORDER_LITTLE = 2 };

/* Byte-order marks of the output. */
enum {
    PVZAN_MARK_BY_NAME = 0, /* if the target's name leaves the byte order open */
    PVZAN_MARK_KEEP = 1,    /* if the source has one, and the target is Unicode */
    PVZAN_MARK_ADD = 2,     /* if the target is Unicode */
    PVZAN_MARK_STRIP = 3
};

/* Line breaks of the output. CR, LF and CR LF are converted, but not U+0085, U+2028 and U+2029. */
enum { PVZAN_BREAKS_AS_FOUND = 0, PVZAN_BREAKS_LF = 1, PVZAN_BREAKS_CRLF = 2, PVZAN_BREAKS_CR = 3 };

/* What a charset's codes are. */
enum {
    PVZAN_KIND_OTHER = 0,
    PVZAN_KIND_UTF_8 = 1,
    PVZAN_KIND_UTF_16 = 2,
    PVZAN_KIND_UCS_2 = 3,
    PVZAN_KIND_UCS_4 = 4
};

/* The result of a guess. */
enum {
    PVZAN_GUESS_NONE = 0,   /* no candidate fits */
    PVZAN_GUESS_SURE = 1,   /* it is the first candidate */
    PVZAN_GUESS_UNSURE = 2, /* another is nearly as likely, or the first candidate has a fault */
    PVZAN_GUESS_BINARY = 3  /* not text; the words say what it is */
};

/* ---- Records -------------------------------------------------------------------------------- */

typedef struct pvzan_converter pvzan_converter;
typedef struct pvzan_guesser pvzan_guesser;

/* What is wrong with a text, and where. */
typedef struct pvzan_fault {
    uint32_t size;
    uint32_t kind;   /* PVZAN_FAULT_... */
    uint32_t reason; /* PVZAN_REASON_..., of invalid bytes */
    uint32_t length; /* its bytes in the source, which are skipped; 0 for a set left open */
    uint64_t offset; /* of its first byte */
    uint64_t line, column;
    uint32_t blamed;        /* number of bytes that the words are about, not always length */
    int32_t follower;       /* the byte after them; -1: unknown, or none */
    uint32_t scalars_count; /* a character, and a mark that is part of the same code */
    uint32_t scalars[2];
    uint32_t back_count; /* what it would come back as */
    uint32_t back[2];
    uint32_t back_bytes_count; /* with PVZAN_READ_BACK, if only the bytes differ */
    uint32_t look_alike;       /* a similar character that the target has; 0: none */
    uint8_t back_bytes[8];
    uint8_t bytes[16]; /* the first of its bytes: blamed or length, whichever is more */
    char why[192];     /* what is wrong, in words, without the place */
    char relative[64]; /* the name of a charset that has what this one lacks (or a character, where
                          a control code of U+0080 to U+009F is missing); or empty */
} pvzan_fault;

typedef struct pvzan_error {
    uint32_t size;
    int32_t code;          /* PVZAN_ERROR_... */
    uint64_t line, column; /* in a file, from 1; 0: none */
    char text[256];        /* in words */
    char file[256];        /* for pvzan_check_definition: the file's name */
} pvzan_error;

/* If all fields but size are 0, conversion is strict, and byte orders, marks and line breaks
 * follow from the names and the text. */
typedef struct pvzan_open_options {
    uint32_t size, flags;
    uint32_t from_order, to_order; /* PVZAN_ORDER_..., for codes of several bytes */
    uint32_t mark, breaks;         /* PVZAN_MARK_..., PVZAN_BREAKS_... */
    uint32_t on_invalid;           /* PVZAN_TELL; DROP to HEX: done by pvzan_feed, counted */
    uint32_t on_missing;           /* also for PVZAN_FAULT_OTHER_BACK */
    uint32_t on_cut;               /* also for PVZAN_FAULT_LEFT_OPEN */
    uint32_t substitute;  /* a Unicode value; 0: the target's first of U+FFFD, U+3013 and "?" */
    uint64_t most_faults; /* further faults are reported by PVZAN_FEED_FAULT; 0: no limit */
} pvzan_open_options;

/* What has been converted so far. */
typedef struct pvzan_counts {
    uint32_t size, reserved;
    uint64_t in, out;      /* bytes; in is after the last character or fault that was handled */
    uint64_t characters;   /* of the source, without faulty bytes */
    uint64_t faults;       /* answered, or handled by pvzan_feed */
    uint64_t look_alikes;  /* written */
    uint64_t composed;     /* characters written for a letter and its marks */
    uint64_t private_use;  /* characters whose meaning is a private agreement */
    uint64_t line, column; /* the place of in, as in a fault; 0 after the end of the text */
} pvzan_counts;

/* The name of a charset, and what it means. */
typedef struct pvzan_name {
    uint32_t size;
    uint32_t kind;    /* PVZAN_KIND_... */
    uint32_t unit;    /* bytes of a code unit */
    uint32_t order;   /* PVZAN_ORDER_...: the order that is written, and read without a mark */
    uint32_t mark;    /* 0: none is written by default; 1: the name leaves the order open, a mark
                         is written, and both are read; 2: a mark of this order is written */
    uint32_t exact;   /* 0: the library lacks this charset; another one contains all of it */
    char charset[64]; /* its name in the charset directory */
    char shown[64];   /* its name in messages */
    char group[64];   /* "Japanese", "Cyrillic" and so on, for lists; or empty */
} pvzan_name;

typedef struct pvzan_candidate {
    uint32_t size, per_million; /* how likely it is compared with the others */
    pvzan_name name;
    char reading[96]; /* how it reads the first place where the most likely two differ; or empty */
} pvzan_candidate;

/* The result of a guess. */
typedef struct pvzan_guess_result {
    uint32_t size;
    uint32_t verdict; /* PVZAN_GUESS_... */
    uint32_t mark;    /* 1: the text begins with a byte-order mark */
    uint32_t reserved;
    uint64_t doubt; /* the first byte that the most likely two read differently, or that is
                       invalid in the most likely; UINT64_MAX: none */
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

/* The version of the library in use: 0x010100 is 1.1.0. */
PVZAN_TEXT_API uint32_t pvzan_text_version(void);

/* Creates a converter from one charset to another. The names are NUL-terminated ASCII, as for
 * pvzan_resolve. options may be null (all 0). Returns NULL if it fails, and says why in error
 * unless that is null. The first call of the process chooses the charset directory, see
 * pvzan_set_directory. */
PVZAN_TEXT_API pvzan_converter* pvzan_open(const char* from, const char* to,
                                           const pvzan_open_options* options, pvzan_error* error);

/* Converts *left bytes at *in into *room bytes at *out, and advances all four.
 *   PVZAN_FEED_MORE_INPUT  All input is taken, also an unfinished character. Not after PVZAN_LAST.
 *   PVZAN_FEED_MORE_ROOM   Call again with the rest of the input and more room, if only a byte.
 *   PVZAN_FEED_FAULT       Everything before the fault has been written, nothing of it; *in is
 *                          after it. Until pvzan_answer is called, the result is the same again.
 *   PVZAN_FEED_DONE        After PVZAN_LAST: the text has ended and its set is closed; further
 *                          calls return PVZAN_FEED_MISUSE until pvzan_reset. After PVZAN_FLUSH:
 *                          everything except an unfinished character has been written.
 * The last call may have no input. in may be null if left is 0, and out if room is 0. Input and
 * output must not overlap.
 *
 * With PVZAN_LEAVE_INPUT, which iconv(3) needs, a character that does not fit into the room is not
 * written in part and stays in the input. So does a cut character (PVZAN_FEED_MORE_INPUT, with
 * bytes left), and a faulty one, which needs no answer: the caller skips as many bytes as the fault
 * has (otherwise later places are wrong), or gives up. But letters that a mark may follow are taken
 * and held back. A byte-order mark is skipped only if the source's name leaves the order open. */
PVZAN_TEXT_API pvzan_outcome pvzan_feed(pvzan_converter* converter, const uint8_t** in,
                                        size_t* left, uint8_t** out, size_t* room, int32_t how);

/* Writes something in place of the fault that pvzan_feed reported, PVZAN_DROP to PVZAN_WRITE_RAW,
 * so that the conversion can continue. For the first four of these, text and left may be null; what
 * does not fit into out is written by the next pvzan_feed, so out may be null, too.
 *   PVZAN_FEED_DONE        All of text has been taken.
 *   PVZAN_FEED_MORE_ROOM   Call again with the rest of text; the fault remains.
 *   PVZAN_FEED_FAULT       The target lacks text, or it is not UTF-8. Nothing was written.
 *   PVZAN_FEED_MISUSE      There is no fault. */
PVZAN_TEXT_API pvzan_outcome pvzan_answer(pvzan_converter* converter, int32_t how,
                                          const uint8_t** text, size_t* left, uint8_t** out,
                                          size_t* room);

/* Copies the fault that was told last; fault->size is set by the caller. Returns 1; or 0 if there
 * is none. It can be had until the next pvzan_feed that goes on, also after pvzan_answer. Most of
 * the time goes into the words and the relative: a size that ends before them saves it. */
PVZAN_TEXT_API int32_t pvzan_last_fault(const pvzan_converter* converter, pvzan_fault* fault);

/* Copies the place of that fault, and what is wrong, in words: "2:5: invalid UTF-8: ff is not a
 * lead byte", or with "byte 7: " if lines are not counted. For languages that do not use the
 * record. Returns the length without the NUL, even if there is not enough room; at most 255. 0: no
 * fault. */
PVZAN_TEXT_API size_t pvzan_explain(const pvzan_converter* converter, char* text, size_t room);

/* Copies the counts; the caller sets counts->size. With a null pointer it does nothing. */
PVZAN_TEXT_API void pvzan_count(const pvzan_converter* converter, pvzan_counts* counts);

/* The room that suffices to convert in_size more bytes and the end of the text in one
 * pvzan_feed, with every fault dropped, substituted, referred to or written in hex; SIZE_MAX if
 * it does not fit into a size_t. */
PVZAN_TEXT_API size_t pvzan_most(const pvzan_converter* converter, size_t in_size);

/* Saves the state of the conversion between two calls of pvzan_feed: held bytes, sets, places and
 * counts. Returns the size, at most 512; to is set only if there is enough room. Returns 0 while a
 * fault waits for an answer. */
PVZAN_TEXT_API size_t pvzan_save(const pvzan_converter* converter, uint8_t* to, size_t room);

/* Continues from a saved state, with a converter of the same charsets and options, in the same
 * version of the library: 1. Returns 0, and changes nothing, if it is not such a state. */
PVZAN_TEXT_API int32_t pvzan_restore(pvzan_converter* converter, const uint8_t* from, size_t size);

/* Returns 1 if the text that follows would be converted as from the saved state; places and counts
 * may differ. Returns 0 if sets, held bytes or the like differ, or if it is not such a state. */
PVZAN_TEXT_API int32_t pvzan_stands_as(const pvzan_converter* converter, const uint8_t* saved,
                                       size_t size);

/* What escape sequences and shifts in the source have designated so far, as a number that is small
 * enough for a file position; 0 at the beginning of a text, and in charsets without them. If
 * nothing is held back, it is all that is needed to continue reading from here later. */
PVZAN_TEXT_API uint64_t pvzan_shift(const pvzan_converter* converter);

/* Begins a text in that state, with a converter from the same charset: 1. Returns 0 if the
 * number is not a state; nothing has changed then. Places and counts begin again. */
PVZAN_TEXT_API int32_t pvzan_begin_in(pvzan_converter* converter, uint64_t shift);

/* Begins another text, as after pvzan_open; places and counts begin again. What an unfinished
 * text held back is dropped, and so is a fault that waits. null is allowed. */
PVZAN_TEXT_API void pvzan_reset(pvzan_converter* converter);

/* Releases a converter, even in the middle of a text. null is allowed. */
PVZAN_TEXT_API void pvzan_close(pvzan_converter* converter);

/* Converts a whole text, including beginning and end. Returns the size of the result. If there
 * is not enough room, outcome is PVZAN_FEED_MORE_ROOM, and the content of out is useless. If it
 * is PVZAN_FEED_FAULT, returns the size of the text before the fault. outcome may be null. */
PVZAN_TEXT_API size_t pvzan_convert(pvzan_converter* converter, const uint8_t* in, size_t in_size,
                                    uint8_t* out, size_t room, pvzan_outcome* outcome);

/* Converts a column of texts that are stored one after the other, as in Arrow: text i is from
 * offsets[i] to offsets[i + 1] in the in_size bytes at in. offsets and out_offsets have rows + 1
 * numbers of offset_bytes bytes, 4 (int32_t) or 8 (int64_t). Each row is a text of its own. A row
 * with a reported fault becomes empty, and fault_kinds[i], unless null, is its kind, or else 0.
 * Returns the number of rows converted: fewer if out has not enough room, or if its offsets would
 * become too large. It also stops at null pointers, and at offsets that decrease or exceed in_size.
 */
PVZAN_TEXT_API size_t pvzan_convert_rows(pvzan_converter* converter, const uint8_t* in,
                                         size_t in_size, const void* offsets, size_t rows,
                                         uint8_t* out, size_t room, void* out_offsets,
                                         uint32_t offset_bytes, uint8_t* fault_kinds);

/* ---- Names ---------------------------------------------------------------------------------- */

/* Finds the meaning of a name. Case, "-", "_" and blanks do not matter. flags is 0 or
 * PVZAN_BROWSER_LABELS. The caller sets meaning->size. Returns 1; or 0 if there is no such
 * charset: shown is then a similar name, or empty. */
PVZAN_TEXT_API int32_t pvzan_resolve(const char* name, uint32_t flags, pvzan_name* meaning);

/* The charsets of the directory, numbered by index from 0 on, the most common ones first. The
 * caller sets charset->size. Returns 1; or 0 after the last. */
PVZAN_TEXT_API int32_t pvzan_each_charset(size_t index, pvzan_name* charset);

/* Other names of a charset, which is given by its name in the directory. Returns 1; or 0 after
 * the last, or if there is not enough room; 64 is always enough. */
PVZAN_TEXT_API int32_t pvzan_each_name(const char* charset, size_t index, char* name, size_t room);

/* ---- The charset directory ------------------------------------------------------------------ */

/* Chooses the charset directory; to be called before everything else. Returns 1; or 0, and says why
 * in error unless that is null. Without this call, the first use chooses the first of these that
 * exists: the directory given to ZAN_setCharsetPath; the environment variable PVZAN_CHARSET_DIR,
 * unless the program runs with another user's rights; pvzan/base2 next to the loaded library; base2
 * next to the library's own directory; the installed one. It never chooses one in the current
 * directory, which may contain anybody's definitions. */
PVZAN_TEXT_API int32_t pvzan_set_directory(const char* path, pvzan_error* error);

/* Copies the path of the charset directory, and chooses it if that was not done. Returns its length
 * without the NUL, even if there is not enough room; 0: there is none. */
PVZAN_TEXT_API size_t pvzan_directory(char* path, size_t room);

/* Finds out why the library does not accept a definition of the charset directory, or what is wrong
 * with the files that it names. Only the last part of path is used, and "further/" before it. Sets
 * up to most errors, and returns how many there are. errors[0].size, which the caller sets, is the
 * distance between records. */
PVZAN_TEXT_API size_t pvzan_check_definition(const char* path, pvzan_error* errors, size_t most);

/* ---- Guessing -------------------------------------------------------------------------------
 * Every charset in the list of names is a candidate. Those that cannot read the text are excluded;
 * how the others read it is compared with the languages that the library knows. If no reading is
 * far ahead, the guess is unsure, and a program should ask its user instead of converting. */

/* Begins a guess. among: names separated by commas, to which the guess is restricted; null: all.
 * language: the user's language, as in LANG, which decides if readings are about equally likely;
 * null: that of LC_ALL, LC_CTYPE or LANG. Returns NULL if there is not enough memory, or no
 * charset directory. */
PVZAN_TEXT_API pvzan_guesser* pvzan_guess_open(const char* among, const char* language);

/* Takes the next piece of the text. Returns 1; or 0 if more text would not change the result. */
PVZAN_TEXT_API int32_t pvzan_guess_feed(pvzan_guesser* guesser, const uint8_t* bytes, size_t size);

/* Ends the guess. complete: 0 if the text continues. Sets the result, unless null, and up to most
 * candidates, the most likely first; candidates[0].size is the distance between records. Returns
 * their number. Of several candidates that read the text alike only one is returned. */
PVZAN_TEXT_API size_t pvzan_guess_end(pvzan_guesser* guesser, int32_t complete,
                                      pvzan_guess_result* result, pvzan_candidate* candidates,
                                      size_t most);

/* null is allowed. */
PVZAN_TEXT_API void pvzan_guess_close(pvzan_guesser* guesser);

/* The same for a text in memory, in one call; returns the verdict. likeliest, unless null, receives
 * the name of the most likely candidate if the verdict is PVZAN_GUESS_SURE or PVZAN_GUESS_UNSURE.
 */
PVZAN_TEXT_API int32_t pvzan_guess(const uint8_t* bytes, size_t size, int32_t complete,
                                   pvzan_name* likeliest);

/* ---- Repair ---------------------------------------------------------------------------------
 * Text that was read with a wrong charset and saved as UTF-8, such as "Ã©" for "é", has an exact
 * way back, line by line, where nothing was lost. Bytes that the wrong charset lacks count as the
 * control codes that browsers make of them. */

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
