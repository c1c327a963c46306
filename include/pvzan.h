/* pvzan.h - convert text between Japanese, Chinese, Korean and Unicode encodings.
 *
 * Link with libPVZAN.so.1. This header is plain C99 and compiles as C++.
 *
 * INTRODUCTION
 *
 * The state of a conversion is kept in one record, the session, which the caller owns. Choose the
 * target with cconvInitConvert and the source with cconvChgCharset, point the session to an input
 * and an output buffer, call cconvConvert until all input has been converted, and close the output
 * with cconvTermConvert. The session keeps its state between calls, so input and output may be cut
 * anywhere, even in the middle of a character. Every call returns the session's status, which says
 * why it stopped. Nothing in a session must be released.
 *
 * Charsets are read from the charset directory: definition files, "*.xml", and mapping tables. Set
 * it once per process with ZAN_setCharsetPath, before the first conversion. The default is
 * "./base2/", or the directory inside the library if it was built with one (PVZAN_EMBED).
 *
 * A session is about 16 KiB large: allocate it on the heap, and reuse it.
 *
 * A complete conversion of a stream; need_input() and take_output() stand for the program's own
 * input and output:
 *
 *     int convert_stream(const char *from, const char *to)
 *     {
 *         unsigned char in[65536], out[65536];
 *         pvzan_session *s = calloc(1, sizeof *s);
 *         pvzan_target_options target = {.dstBigEndian = 1};
 *         pvzan_source_options source = {.srcBigEndian = 1};
 *         size_t kept = 0, got;
 *         int faults = 0;
 *
 *         if (s == NULL || cconvInitConvert(s, &target, to) != PVZAN_DONE ||
 *             cconvChgCharset(s, &source, from) != PVZAN_DONE)
 *             return free(s), -1;                    // unknown charset, or no charset directory
 *         s->inBuf = in, s->outBuf = out, s->outLen = sizeof out;
 *         while ((got = need_input(in + kept, sizeof in - kept)) > 0) {
 *             s->inPos = 0, s->inLen = (int32_t)(kept + got);
 *             for (;;) {
 *                 int32_t before = s->inPos;
 *                 uint32_t status = cconvConvert(s);
 *                 if (status == PVZAN_DONE || status == PVZAN_INPUT_INCOMPLETE)
 *                     break;                                     // 0, 12: more input, please
 *                 if (status == PVZAN_OUTPUT_FULL) {             // 22: make room and go on
 *                     take_output(out, s->outPos), s->outPos = 0;
 *                 } else if (status == PVZAN_INVALID_INPUT) {    // 13: note it, go on behind it
 *                     faults++;
 *                     if (s->inPos == before)
 *                         s->inPos++;
 *                 } else if (status == PVZAN_UNREPRESENTABLE) {  // 23: not in the target; dropped
 *                     faults++;
 *                 } else {
 *                     return free(s), -1;
 *                 }
 *             }
 *             kept = (size_t)(s->inLen - s->inPos);              // 12: a character is cut here
 *             memmove(in, in + s->inPos, kept);
 *         }
 *         faults += kept > 0;                                    // the text ends in a character
 *         while (cconvTermConvert(s) == PVZAN_OUTPUT_FULL)
 *             take_output(out, s->outPos), s->outPos = 0;
 *         take_output(out, s->outPos);
 *         return free(s), faults;
 *     }
 *
 * WHAT TO KNOW BEFORE RELYING ON IT
 *
 * - Set srcBigEndian and dstBigEndian to 1 for every charset except the little-endian forms of
 *   UTF-16, UCS-2 and UCS-4. They apply to all codes of several bytes: if dstBigEndian is 0, the
 *   Shift_JIS character 82 A0 is written as A0 82.
 * - A base letter and its combining mark (U+304B U+309A and 24 more pairs that JIS X 0213 has as
 *   one character) are one character to the UTF-8 and UTF-16 decoders, if both are in the same
 *   input buffer. In a charset without JIS X 0213 the pair is written as the code of the base and
 *   the raw value of the mark, which cannot be read back. To avoid this, pass the two in separate
 *   calls; the mark is then reported as unrepresentable.
 * - UTF-8 and UTF-16 input is read leniently: over-long forms, surrogates and invalid continuation
 *   bytes are decoded, not reported. If that matters, check the text first, or use pvzan_text.h.
 * - An output buffer of 8 bytes is enough to make progress with every charset, one of 22 bytes also
 *   with character references. A language tag needs 4 more bytes for each letter.
 * - Unicode charsets whose own sets lack the tag characters read language tags; those that come
 *   with the library have every character and pass tags on. A tag may begin inside another one. If
 *   the innermost tag is cancelled, cut by invalid input or longer than 4095 letters, all of them
 *   are invalid; inPos stays before the outermost, and the next calls read the inner ones. If more
 *   than 32 tags begin inside it, inPos moves after what was read instead, so that the time for a
 *   hostile text grows linearly with its length.
 * - Positions are signed 32-bit numbers, so a buffer is smaller than 2 GiB. A stream may have any
 *   length.
 * - The library may write to bytes of outBuf after outPos. Input and output may overlap if no
 *   output overtakes input that is still to be read; this is slow.
 * - To be fast, the library keeps at most 64 MiB of data per process; what has been unused for
 *   longest is dropped first.
 *
 * THREADS
 *
 * A session must be used by one thread at a time; different threads may use different sessions at
 * the same time. Definitions and tables are loaded once, on first use, under the library's own
 * lock. pthread_cancel does not interrupt this, and fork waits for it, so that parent and child can
 * both convert. Call my_init, my_fini and ZAN_setCharsetPath at the start and at the end of the
 * program, while no other thread uses the library.
 */
#ifndef PVZAN_H
#define PVZAN_H

#include <stdint.h>

/* The version of the library this header belongs to; the build takes its own from here. */
#define PVZAN_VERSION_MAJOR 1
#define PVZAN_VERSION_MINOR 1
#define PVZAN_VERSION_PATCH 0

#if defined(__GNUC__)
#define PVZAN_API __attribute__((visibility("default")))
#else
#define PVZAN_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* Size of every text field: names, paths, language tags. The last byte is the terminating NUL. */
enum { PVZAN_TEXT_BYTES = 4096 };

/* ---- Numbers -------------------------------------------------------------------------------- */

/* Status codes: the field status of a session, and the result of every cconv call. */
enum {
    PVZAN_DONE = 0,              /* success; all input has been converted */
    PVZAN_UNKNOWN_CHARSET = 1,   /* no such charset, or the session lacks a source or a target */
    PVZAN_DECODED = 11,          /* between the rules only: a character waits to be encoded */
    PVZAN_INPUT_INCOMPLETE = 12, /* the input ends inside a character; inPos is at its first byte */
    PVZAN_INVALID_INPUT = 13,    /* invalid bytes; the next call continues at inPos */
    PVZAN_WRITTEN = 21,          /* between the rules only: a character was written */
    PVZAN_OUTPUT_FULL = 22,      /* the character did not fit; the next call writes it */
    PVZAN_UNREPRESENTABLE = 23,  /* the target lacks the character; the next call drops it */
    PVZAN_TERMINATE = 31         /* inside cconvTermConvert only: close the output */
};

/* Line breaks: newlineMode of the target options, and what detection reports (0: none found). */
enum {
    PVZAN_NEWLINE_CRLF = 1,
    PVZAN_NEWLINE_CR = 2,
    PVZAN_NEWLINE_LF = 3,
    PVZAN_NEWLINE_LINE_SEPARATOR = 4,     /* U+2028 */
    PVZAN_NEWLINE_PARAGRAPH_SEPARATOR = 5 /* U+2029 */
};

/* charRefMode of the target options. */
enum {
    PVZAN_CHARREF_OFF = 0,
    PVZAN_CHARREF_HEX = 1,    /* &#x20BB7; */
    PVZAN_CHARREF_DECIMAL = 2 /* &#134071; as with every other value above 1 */
};

/* Group numbers of the charsets: srcGroupNo and dstGroupNo. */
enum {
    PVZAN_SHIFT_JIS = 1001,        /* JIS X 0208:1997, annex 1 */
    PVZAN_WINDOWS_31J = 1002,      /* Windows code page 932 */
    PVZAN_UCS_2 = 1003,            /* ISO/IEC 10646, two bytes */
    PVZAN_UCS_4 = 1004,            /* ISO/IEC 10646, four bytes */
    PVZAN_UTF_16 = 1005,           /* RFC 2781 */
    PVZAN_UTF_8 = 1006,            /* RFC 3629 */
    PVZAN_EUC_JP = 1007,           /* ASCII, JIS X 0208, half-width katakana, JIS X 0212 */
    PVZAN_EUC_JP_FIX = 1008,       /* the same, with two bytes for each character */
    PVZAN_ISO_2022_JP = 1009,      /* RFC 1468 */
    PVZAN_SHIFT_JIS_2004 = 1010,   /* JIS X 0213:2004, annex 1 */
    PVZAN_EUC_JIS_2004 = 1011,     /* JIS X 0213:2004, annex 3 */
    PVZAN_ISO_2022_JP_2004 = 1012, /* JIS X 0213:2004, annex 2 */
    PVZAN_CHINESE_GBK = 5000,      /* Windows code page 936 */
    PVZAN_CHINESE_BIG5 = 5001,     /* Windows code page 950 */
    PVZAN_KOREAN_KSC = 5002,       /* Windows code page 949 */
    PVZAN_GB18030 = 5003           /* GB 18030-2022 */
};

/* Set numbers of the coded character sets: charSetNo and outSetNo. */
enum {
    PVZAN_SET_ISO_646_IRV = 2001, /* ASCII */
    PVZAN_SET_JIS_X_0201_LATIN = 2002,
    PVZAN_SET_JIS_X_0201_KANA = 2003, /* half-width katakana, A1 to DF */
    PVZAN_SET_JIS_C_6226_1978 = 2004,
    PVZAN_SET_JIS_X_0208_1983 = 2005,
    PVZAN_SET_JIS_X_0208_1990 = 2006,
    PVZAN_SET_JIS_X_0212_1990 = 2007,
    PVZAN_SET_NEC_EXT = 2008, /* NEC row 13 and the IBM characters selected by NEC */
    PVZAN_SET_IBM_EXT = 2009,
    PVZAN_SET_JIS_78_83 = 2010,
    PVZAN_SET_JIS_X_0213 = 2011, /* bit 16 of a code marks plane 2 */
    PVZAN_SET_WINDOWS_31J_USER = 3001,
    PVZAN_SET_WINDOWS_NTJ_USER = 3002,
    PVZAN_SET_OASYS_EXT = 3003,
    PVZAN_SET_OASYS2_EXT = 3004
};

/* Kinds of set: charSetType and outSetType. */
enum { PVZAN_SET_BASE = 1, PVZAN_SET_DIFFERENCE = 2, PVZAN_SET_USER_DEFINED = 3 };

/* ---- Records -------------------------------------------------------------------------------- */

/* How the target is written; cconvInitConvert copies it. A record of zeros is valid. */
typedef struct pvzan_target_options {
    uint32_t dstBigEndian;  /* most significant byte of a code first; 0: last */
    uint32_t dstWriteBom;   /* Unicode targets: write a byte-order mark first */
    uint32_t useSubstitute; /* write a substitute for each character that the target lacks, see
                               below */
    uint16_t substChar1;    /* Unicode value of the substitute for one-byte characters */
    uint16_t substChar2;    /* the same for all other characters */
    char
        langTag[PVZAN_TEXT_BYTES]; /* UTF-8, UTF-16, UCS-4: language tag to write, "ja"; or empty */
    uint32_t convertNewline; /* write all line breaks (CR, LF, CR LF, U+2028, U+2029) in the same
                                way */
    uint32_t newlineMode;    /* as what: PVZAN_NEWLINE_...; any other value means CR LF,
                                and so do 4 and 5 where the target has one-byte codes */
    uint32_t charRefMode;    /* UCS-2: PVZAN_CHARREF_... for characters that Windows-31J lacks */
} pvzan_target_options;

/* How the source is read; cconvChgCharset copies it. A record of zeros is valid. */
typedef struct pvzan_source_options {
    uint32_t
        srcBigEndian; /* most significant byte of a code first; a byte-order mark overrides it */
    uint32_t srcCheckBom; /* Unicode sources: take a byte-order mark at the start. UTF-8 then waits
                             for three bytes: a shorter text answers PVZAN_INPUT_INCOMPLETE */
    uint32_t skipInvalid; /* drop invalid input instead of answering PVZAN_INVALID_INPUT */
} pvzan_source_options;

/* A substitute in the sets of the target; code 0: there is none. If neither the chosen
 * characters nor U+003F with U+3013 or U+FF1D exist, the missing one remains so, and characters
 * that it would replace are dropped. */
typedef struct pvzan_substitute {
    uint32_t setNo;
    uint16_t setType;
    uint32_t code;
    uint16_t bytes;
} pvzan_substitute;

struct pvzan_charset_group;
struct pvzan_rule_row;

/* A conversion, owned by the caller, who sets the first eight fields before cconvConvert and may
 * read all others. cconvInitConvert clears everything from status on except the source options. */
typedef struct pvzan_session {
    const uint8_t* inBuf; /* input */
    int32_t inPos;        /* next byte to read; moved by the library */
    int32_t inLen;        /* end of the input in inBuf */
    uint32_t inCount;     /* characters decoded so far; reset only by the caller */

    uint8_t* outBuf;   /* output */
    int32_t outPos;    /* next byte to write; moved by the library */
    int32_t outLen;    /* size of outBuf */
    uint32_t outCount; /* codes written so far; reset only by the caller */

    uint32_t status; /* PVZAN_DONE ...: result of the last call; tells the next one where to
                        resume */

    uint32_t srcGroupNo; /* source charset */
    struct pvzan_charset_group* srcGroup;
    struct pvzan_rule_row* srcRule;
    uint32_t charSetNo;   /* coded set of the current character */
    uint16_t charSetType; /* its kind */
    uint32_t srcShiftSet; /* ISO-2022-JP: the set designated in the input */

    uint32_t dstGroupNo; /* target charset */
    struct pvzan_charset_group* dstGroup;
    struct pvzan_rule_row* dstRule;
    uint32_t outSetNo;      /* coded set of outCode */
    uint16_t outSetType;    /* its kind */
    uint32_t dstShiftSet;   /* ISO-2022-JP: set designated in the output; 0: none yet */
    uint32_t dstShiftPlane; /* JIS X 0213 plane last designated in the output: 11, 12; 0: none */

    uint32_t srcCode;     /* bytes of the current character, as one number */
    uint32_t setCode;     /* its code within its coded set */
    uint32_t ucsCode;     /* its Unicode scalar value; 0 if none was needed */
    uint32_t outCode;     /* code to write */
    uint16_t outBytes;    /* bytes of outCode */
    uint16_t outDone;     /* value width of the extra encode table that has outCode; 0: none */
    uint32_t prevSrcCode; /* srcCode of the previous character, to recognise CR LF */
    uint32_t outCode2;    /* combining mark to write after outCode; 0: none */

    char baseLang[PVZAN_TEXT_BYTES]; /* language tag of the target options */
    char outLang[PVZAN_TEXT_BYTES];  /* language tag last written */
    char curLang[PVZAN_TEXT_BYTES];  /* language tag of the text being converted */

    pvzan_source_options source; /* copies of the options */
    pvzan_target_options target;

    pvzan_substitute subst1; /* for characters whose code in their set is at most FF */
    pvzan_substitute subst2; /* for all others */
} pvzan_session;

/* ---- Conversion ----------------------------------------------------------------------------- */

/* Starts a conversion to the charset called name, without regard to case. The first call of the
 * process reads the definitions; each call loads the tables that it needs. options may be null
 * (all zeros). Returns PVZAN_DONE, or PVZAN_UNKNOWN_CHARSET, which cconvConvert will then also
 * return. Definitions and tables are read once per process: what could not be read for lack of
 * memory or file descriptors stays unknown. The session has no source afterwards: call
 * cconvChgCharset next. */
PVZAN_API uint32_t cconvInitConvert(pvzan_session* session, const pvzan_target_options* options,
                                    const char* name);

/* Chooses the source charset, after cconvInitConvert or between two calls of cconvConvert; the
 * state of the output is kept. options may be null (all zeros). Returns PVZAN_DONE, or
 * PVZAN_UNKNOWN_CHARSET, after which the session has no source. */
PVZAN_API uint32_t cconvChgCharset(pvzan_session* session, const pvzan_source_options* options,
                                   const char* name);

/* Convert inBuf[inPos, inLen) to outBuf[outPos, outLen), moving both positions. Returns
 *   PVZAN_DONE              all input has been converted;
 *   PVZAN_INPUT_INCOMPLETE  pass the bytes from inPos on again, with more bytes after them;
 *   PVZAN_OUTPUT_FULL       no part of the next character was written: call again with more room;
 *   PVZAN_INVALID_INPUT     call again to continue; if inPos has not moved, skip a byte first;
 *   PVZAN_UNREPRESENTABLE   charSetNo, setCode and, unless 0, ucsCode say which character it is;
 *                           call again to continue after it;
 *   PVZAN_UNKNOWN_CHARSET   the session has no source or no target. */
PVZAN_API uint32_t cconvConvert(pvzan_session* session);

/* Closes the output: charsets with shift states return to the initial one, as ISO-2022-JP does to
 * ASCII; others write nothing. Returns PVZAN_DONE, or PVZAN_OUTPUT_FULL: call again with more room.
 */
PVZAN_API uint32_t cconvTermConvert(pvzan_session* session);

/* ---- Library start and end, charset directory ----------------------------------------------- */

/* Call my_init once before everything else, and my_fini once at the end. The first conversion
 * takes a reference of its own, so what sessions point to stays valid after my_fini, until the
 * library is unloaded by dlclose. */
PVZAN_API void my_init(void);
PVZAN_API void my_fini(void);

/* Sets the charset directory, once per process and before the first conversion. The path is
 * copied, and truncated to 4095 bytes. Returns 1, or 0 if path is null or empty, or if the
 * directory has already been set or used. */
PVZAN_API uint32_t ZAN_setCharsetPath(const char* path);

/* The charset directory that is set, or an empty string. Owned by the library. */
PVZAN_API char* ZAN_getCharsetPath(void);

/* Reads the definitions now, not with the first conversion. Returns 1 if at least one charset
 * could be read, otherwise 0. Only the first call reads them. */
PVZAN_API uint32_t cconvLoadRule(void);

/* ---- Shift_JIS and JIS codes ---------------------------------------------------------------- */

/* A double-byte code is lead << 8 | trail in Shift_JIS, and row << 8 | cell, each 21 to 7E, in
 * JIS (JIS X 0208:1997, annex 1). One-byte codes are returned unchanged; 0 means that there is
 * no such code. Pure functions. */
PVZAN_API uint32_t SJIStoJIS(uint32_t code);
PVZAN_API uint32_t JIStoSJIS(uint32_t code);

/* The same; lead bytes F0 to FC stand for rows 7F to 98, after those of the standard
 * (Windows-31J has its user-defined characters there). */
PVZAN_API uint32_t SJIStoJISex(uint32_t code);
PVZAN_API uint32_t JIStoSJISex(uint32_t code);

/* Shift_JIS-2004 (JIS X 0213:2004, annex 1): lead bytes F0 to FC are plane 2, for which bit 16
 * of a JIS code is set. Call JIStoSJIS2004 only with codes of JIS X 0213: a row or cell that the
 * standard does not have aborts the process by an assertion. */
PVZAN_API uint32_t SJIStoJIS2004(uint32_t code);
PVZAN_API uint32_t JIStoSJIS2004(uint32_t code);

/* ---- Encoding detection --------------------------------------------------------------------- */

/* A text whose encoding is to be detected, and the result. The caller owns the record and the
 * text, and sets the first three fields, which the call does not change. */
typedef struct pvzan_detection_request {
    const uint8_t* text; /* the bytes to examine */
    int32_t textPos;     /* index of the first one */
    int32_t textEnd;     /* index after the last one */

    char encodingName[PVZAN_TEXT_BYTES]; /* the name of the encoding, or "unknown" */
    uint32_t xmlDeclared;                /* 1: an XML declaration was found */
    uint32_t bomFound;                   /* 1: a byte-order mark was found */
    uint32_t bigEndian;                  /* 1: most significant byte first, or byte order does
                                            not matter */
    uint32_t newlineKind;                /* PVZAN_NEWLINE_...; 0: no line break was found */
    uint32_t resultFlags;                /* 4098 for UTF-16, UCS-2 and UCS-4, else 1; 0: unknown */
} pvzan_detection_request;

/* Detects the encoding of a text: by its byte-order mark, else by an XML declaration, else by
 * how well its first 2048 bytes fit UCS-4, UTF-16, UTF-8, EUC-JP, its fixed-width form,
 * Windows-31J and ISO-2022-JP. Returns 1 and the name, or 0 and "unknown". The names are
 * ISO-10646-UCS-4, UTF-16, UTF-8, EUC-JP-FIX, EUC-JP, WINDOWS31J, ISO-8859-1, ISO-646IRV and
 * ISO-2022-JP; the name in a declaration is returned unchecked. Reads nothing outside [textPos,
 * textEnd), and allocates nothing except for the definitions that the first call of the process
 * loads. An empty or invalid range, or a null text, gives "unknown". A request must be used by
 * one thread at a time. */
PVZAN_API uint32_t cconvChkEncode(pvzan_detection_request* request);

/* 1 for names of encodings whose byte order matters: exactly "UTF-16", "ISO-10646-UCS-2" and
 * "ISO-10646-UCS-4"; otherwise 0. */
PVZAN_API uint32_t cconvIsEndianAware(const char* name);

/* ---- Stand-alone converters ----------------------------------------------------------------- */

/* Converters that need no session, no charset directory and no my_init. Pure functions; if a
 * pointer is null, they convert nothing. */

/* Converts HZ (RFC 1843) to GB 2312 in EUC. in is NUL-terminated; out must be as large as in,
 * and outSize is checked only where in has a "~". Returns 0 if everything was converted, with
 * the number of bytes written, modulo 65536, in *outCount. Otherwise there was no more room at a
 * "~": returns the number of bytes written so far, modulo 65536, and does not set *outCount. A
 * "~~" is read as "~" and the start of another escape; a "~" before a line feed or an unknown
 * byte leaves a byte of out unwritten and uncounted. */
PVZAN_API uint32_t ZAN_HZtoGB2312(uint8_t* out, const uint8_t* in, int32_t outSize,
                                  uint32_t* outCount);

/* Converts UTF-7 (RFC 2152) to UCS-4 in native byte order, and joins surrogate pairs. in is
 * NUL-terminated, outSize counts characters. *outCount receives the number of characters
 * written. Returns 0 if everything was converted. Otherwise returns the number of input bytes
 * before the malformed sequence, or before the output was full, plus 1; this may be inside a
 * base-64 run, so call again with a larger buffer from the start. Malformed are bytes above 7D,
 * "\", a "+" not followed by a base-64 letter or "-", a run that ends inside a character or in
 * nonzero padding, and single surrogates. Control codes are passed on. */
PVZAN_API uint32_t ZAN_UTF_7ToUCS_4(uint32_t* out, const uint8_t* in, int32_t outSize,
                                    uint32_t* outCount);

#ifdef __cplusplus
}
#endif
#endif
