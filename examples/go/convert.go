// Converts standard input: convert FROM TO <input >output. Faults are reported, and their bytes written in <>.
package main

// #cgo LDFLAGS: -lPVZAN
// #include <pvzan_text.h>
// #include <stdlib.h>
import "C"
import (
	"fmt"
	"os"
	"unsafe"
)

func main() {
	c := C.pvzan_open(C.CString(os.Args[1]), C.CString(os.Args[2]), nil, nil)
	if c == nil {
		panic("no such charset")
	}
	const size = 65536 // C may move only pointers to its own memory
	in, out := (*C.uint8_t)(C.malloc(size)), (*C.uint8_t)(C.malloc(size))
	for how := C.int32_t(C.PVZAN_PART); how != C.PVZAN_LAST; {
		got, err := os.Stdin.Read(unsafe.Slice((*byte)(in), size))
		if err != nil {
			how = C.PVZAN_LAST
		}
		next, left, said := in, C.size_t(got), C.pvzan_outcome(C.PVZAN_FEED_MORE_ROOM)
		for said == C.PVZAN_FEED_MORE_ROOM || said == C.PVZAN_FEED_FAULT {
			end, room := out, C.size_t(size)
			if said = C.pvzan_feed(c, &next, &left, &end, &room, how); said == C.PVZAN_FEED_FAULT {
				f := C.pvzan_fault{size: C.sizeof_pvzan_fault}
				C.pvzan_last_fault(c, &f)
				fmt.Fprintf(os.Stderr, "%d:%d: %s\n", f.line, f.column, C.GoString(&f.why[0]))
				C.pvzan_answer(c, C.PVZAN_HEX, nil, nil, &end, &room)
			}
			os.Stdout.Write(unsafe.Slice((*byte)(out), size-room))
		}
	}
	C.pvzan_close(c)
}
