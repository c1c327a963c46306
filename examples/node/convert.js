// Converts standard input: node convert.js FROM TO <input >output. Faults are reported, and their bytes
// written in <>. First run: npm install koffi
const fs = require('fs');
const koffi = require('koffi');

// Some calls of pvzan_text.h. Pointers to pointers are passed as addresses; records that may be null are
// passed as null.
const library = koffi.load('libPVZAN.so.1');
const open = library.func('void *pvzan_open(const char *from, const char *to, void *options, void *error)');
const feed = library.func('int32_t pvzan_feed(void *c, _Inout_ uintptr_t *in, _Inout_ size_t *left, ' +
    '_Inout_ uintptr_t *out, _Inout_ size_t *room, int32_t how)');
const answer = library.func('int32_t pvzan_answer(void *c, int32_t how, void *text, void *left, ' +
    '_Inout_ uintptr_t *out, _Inout_ size_t *room)');
const explain = library.func('size_t pvzan_explain(void *c, void *text, size_t room)');
const close = library.func('void pvzan_close(void *c)');
const MORE_ROOM = 2, FAULT = 3, PART = 0, LAST = 1, HEX = 4;

const c = open(process.argv[2], process.argv[3], null, null);
if (c === null) {
    throw new Error('no such charset');
}
const input = Buffer.alloc(65536), output = Buffer.alloc(65536), words = Buffer.alloc(256);
for (let got = 1; got > 0;) {
    got = fs.readSync(0, input);
    const next = [koffi.address(input)], left = [got];
    for (let said = MORE_ROOM; said === MORE_ROOM || said === FAULT;) {
        const end = [koffi.address(output)], room = [output.length];
        said = feed(c, next, left, end, room, got > 0 ? PART : LAST);
        if (said === FAULT) {
            console.error(words.toString('utf8', 0, explain(c, words, words.length)));
            answer(c, HEX, null, null, end, room);
        }
        fs.writeSync(1, output, 0, output.length - room[0]);
    }
}
close(c);
