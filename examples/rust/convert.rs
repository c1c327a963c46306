// Converts standard input: convert FROM TO <input >output. Faults are reported, and their bytes written in <>.
// Build with: rustc convert.rs -l PVZAN
use std::{ffi::{c_char, c_void, CString}, io::{Read, Write}, ptr::null_mut};

// Some calls of pvzan_text.h. Records whose pointer is always null here are not declared.
extern "C" {
    fn pvzan_open(from: *const c_char, to: *const c_char, options: *const c_void, error: *mut c_void) -> *mut c_void;
    fn pvzan_feed(c: *mut c_void, input: *mut *const u8, left: *mut usize, out: *mut *mut u8, room: *mut usize,
                  how: i32) -> i32;
    fn pvzan_answer(c: *mut c_void, how: i32, text: *mut *const u8, left: *mut usize, out: *mut *mut u8,
                    room: *mut usize) -> i32;
    fn pvzan_explain(c: *mut c_void, text: *mut u8, room: usize) -> usize;
    fn pvzan_close(c: *mut c_void);
}
const LAST: i32 = 1; // of pvzan_feed
const MORE_ROOM: i32 = 2; // its result
const FAULT: i32 = 3;
const HEX: i32 = 4; // of pvzan_answer

fn main() -> std::io::Result<()> {
    let names: Vec<CString> = std::env::args().skip(1).map(|name| CString::new(name).unwrap()).collect();
    let c = unsafe { pvzan_open(names[0].as_ptr(), names[1].as_ptr(), null_mut(), null_mut()) };
    assert!(!c.is_null(), "no such charset");
    let (mut input, mut out, mut got) = ([0u8; 65536], [0u8; 65536], 1);
    while got > 0 {
        got = std::io::stdin().read(&mut input)?;
        let (mut next, mut left, mut said) = (input.as_ptr(), got, MORE_ROOM);
        while said == MORE_ROOM || said == FAULT {
            let (mut end, mut room) = (out.as_mut_ptr(), out.len());
            said = unsafe { pvzan_feed(c, &mut next, &mut left, &mut end, &mut room, if got == 0 { LAST } else { 0 }) };
            if said == FAULT {
                let mut words = [0u8; 256];
                let length = unsafe { pvzan_explain(c, words.as_mut_ptr(), words.len()) };
                eprintln!("{}", String::from_utf8_lossy(&words[..length]));
                unsafe { pvzan_answer(c, HEX, null_mut(), null_mut(), &mut end, &mut room) };
            }
            std::io::stdout().write_all(&out[..out.len() - room])?;
        }
    }
    Ok(unsafe { pvzan_close(c) })
}
