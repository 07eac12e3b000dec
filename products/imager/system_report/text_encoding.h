// Telling 8-bit text from UTF-16 text by its bytes, for files that carry no label but their content.
#pragma once

#include <string>
#include <string_view>

namespace SystemReport {

enum class TextEncoding { EightBit, Utf16Le, Utf16Be };

// A byte-order mark decides (FF FE: UTF-16LE, FE FF: UTF-16BE, EF BB BF: 8-bit). Without one, the first
// 4 KiB are read as 16-bit units: the text is UTF-16 in one byte order when at least half of the units are
// ASCII characters in that order (the character byte not zero, the other byte zero) and at most one in
// sixteen is an ASCII character in the other order. 8-bit text has no zero bytes between its characters,
// so it never takes that shape; anything else is 8-bit.
TextEncoding DetectTextEncoding(std::string_view bytes);

// Swaps the bytes of every 16-bit unit, turning UTF-16BE into UTF-16LE and back without decoding
// anything: lone surrogates and an odd trailing byte (kept last) come back exactly.
void SwapUtf16ByteOrder(std::string& bytes);

}  // namespace SystemReport
