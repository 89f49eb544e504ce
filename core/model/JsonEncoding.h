#pragma once

#include <string>
#include <string_view>

// JSON text may come in any of the encodings JSON allows: UTF-8, UTF-16 or
// UTF-32, big- or little-endian, with or without a byte-order mark. The encoding
// is told apart as JSON's RFCs describe: by the mark when there is one, else by
// where the first four bytes hold zeros (the first two characters of JSON text
// are ASCII):
//
//     00 00 00 xx  UTF-32BE        xx 00 00 00  UTF-32LE
//     00 xx 00 xx  UTF-16BE        xx 00 xx 00  UTF-16LE
//     anything else UTF-8
//
// A text of two or three bytes is told by its first two alone (00 xx UTF-16BE,
// xx 00 UTF-16LE).

namespace velmora {

// The text as UTF-8, ready for the parser. UTF-8 input is returned as it is (a
// UTF-8 byte-order mark included: the parser skips it); any other encoding is
// converted into `storage`, without its byte-order mark, and the view is of
// that. Throws DecodeError when the text is not well-formed in its encoding (an
// odd byte count for UTF-16, a byte count that is not a multiple of four for
// UTF-32, an unpaired surrogate, a value beyond U+10FFFF), naming the line and
// column where the converted text breaks off.
std::string_view jsonTextAsUtf8(std::string_view bytes, std::string& storage);

}  // namespace velmora
