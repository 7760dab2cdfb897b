// Little- and big-endian numbers in byte buffers, for the file formats of the images library.
// Fields are read and written one by one, never by laying a struct over the bytes.
#pragma once

#include <cstdint>

namespace tarvik {

inline uint16_t QGetLE16(const uint8_t* p) { return uint16_t(p[0] | p[1] << 8); }
inline uint32_t QGetLE32(const uint8_t* p) { return uint32_t(p[0]) | uint32_t(p[1]) << 8 | uint32_t(p[2]) << 16 | uint32_t(p[3]) << 24; }
inline uint16_t QGetBE16(const uint8_t* p) { return uint16_t(p[0] << 8 | p[1]); }
inline uint32_t QGetBE32(const uint8_t* p) { return uint32_t(p[0]) << 24 | uint32_t(p[1]) << 16 | uint32_t(p[2]) << 8 | uint32_t(p[3]); }

inline void QPutLE16(uint8_t* p, unsigned v) { p[0] = uint8_t(v); p[1] = uint8_t(v >> 8); }
inline void QPutLE32(uint8_t* p, uint32_t v) { QPutLE16(p, v & 0xFFFF); QPutLE16(p + 2, v >> 16); }

} // namespace tarvik
