// encoding_rs as a contender: a stream between two encodings, behind the C interface that
// contenders.cpp declares. Built only where rustc and Debian's librust-encoding-rs-dev are.
extern crate encoding_rs;

use encoding_rs::*;
use std::ffi::CStr;
use std::os::raw::c_char;
use std::slice;

pub struct Stream {
    from: &'static Encoding,
    to: &'static Encoding,
    decoder: Decoder,
    encoder: Encoder,
    pivot: Vec<u8>,
}

unsafe fn encoding(label: *const c_char) -> Option<&'static Encoding> {
    Encoding::for_label(CStr::from_ptr(label).to_bytes())
}

#[no_mangle]
pub unsafe extern "C" fn encoding_rs_open(from: *const c_char, to: *const c_char) -> *mut Stream {
    match (encoding(from), encoding(to)) {
        (Some(from), Some(to)) => Box::into_raw(Box::new(Stream {
            from,
            to,
            decoder: from.new_decoder_without_bom_handling(),
            encoder: to.new_encoder(),
            pivot: vec![0; 3 * 64 * 1024],
        })),
        _ => std::ptr::null_mut(),
    }
}

#[no_mangle]
pub unsafe extern "C" fn encoding_rs_close(stream: *mut Stream) {
    drop(Box::from_raw(stream));
}

#[no_mangle]
pub unsafe extern "C" fn encoding_rs_restart(stream: *mut Stream) {
    let s = &mut *stream;
    s.decoder = s.from.new_decoder_without_bom_handling();
    s.encoder = s.to.new_encoder();
}

unsafe fn units(bytes: *const u8, len: usize) -> &'static [u16] {
    slice::from_raw_parts(bytes as *const u16, len / 2)
}

// Each way takes what encoding_rs offers for it: from UTF-8, validation and then the encoder; to
// and from UTF-16 its own functions for it; between two legacy encodings a pivot in UTF-8.
#[no_mangle]
pub unsafe extern "C" fn encoding_rs_step(
    stream: *mut Stream,
    input: *const u8,
    in_len: usize,
    output: *mut u8,
    out_len: usize,
    last: bool,
    read: *mut usize,
    written: *mut usize,
) -> bool {
    let s = &mut *stream;
    let src: &[u8] = if in_len == 0 { &[] } else { slice::from_raw_parts(input, in_len) };
    let dst = slice::from_raw_parts_mut(output, out_len);
    *read = in_len;
    if s.to == UTF_16LE {
        let wide = slice::from_raw_parts_mut(output as *mut u16, out_len / 2);
        let (result, _, n) = s.decoder.decode_to_utf16_without_replacement(src, wide, last);
        *written = 2 * n;
        return result == DecoderResult::InputEmpty;
    }
    if s.from == UTF_16LE && s.to == UTF_8 {
        *read = in_len & !1;
        let text = slice::from_raw_parts_mut(output, out_len);
        *written = mem::convert_utf16_to_utf8(units(input, *read), text);
        return true;
    }
    if s.from == UTF_16LE {
        *read = in_len & !1;
        let wide: &[u16] = if *read == 0 { &[] } else { units(input, *read) };
        let (result, _, n) = s.encoder.encode_from_utf16_without_replacement(wide, dst, last);
        *written = n;
        return result == EncoderResult::InputEmpty;
    }
    if s.to == UTF_8 {
        let (result, _, n) = s.decoder.decode_to_utf8_without_replacement(src, dst, last);
        *written = n;
        return result == DecoderResult::InputEmpty;
    }
    let text: &str = if s.from == UTF_8 {
        *read = Encoding::utf8_valid_up_to(src);
        std::str::from_utf8_unchecked(&src[..*read])
    } else {
        let pivot = s.pivot.as_mut_slice();
        let (result, _, n) = s.decoder.decode_to_utf8_without_replacement(src, pivot, last);
        if result != DecoderResult::InputEmpty {
            return false;
        }
        std::str::from_utf8_unchecked(&pivot[..n])
    };
    let (result, _, n) = s.encoder.encode_from_utf8_without_replacement(text, dst, last);
    *written = n;
    result == EncoderResult::InputEmpty
}
