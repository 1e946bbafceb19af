// ozmfile.cpp - buffered byte files (OzmBFile), text files of UCChar units
// (OzmUCFile) and the UTF-8 decoder they share with OzmGlob::DecodeUTF8.
#include "ozmutil.h"
#include "platform/ozmutf8.h"

#include <cerrno>
#include <algorithm>
#include <cstring>
#include <new>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace {

// ---------------------------------------------------------------------------
// UTF-8 decoding

// Decodes the UTF-8 bytes [src, src + n) into dst, which must have room for n
// units (no sequence yields more units than it has bytes). A byte that does
// not begin a complete, valid sequence (overlong forms, encoded surrogates,
// values above U+10FFFF, stray continuation bytes) becomes the unit of its
// Latin-1 value and decoding goes on with the next byte. A sequence that is
// valid so far but cut off by the end of the data is left unconsumed unless
// final is set, in which case its bytes are taken one by one as Latin-1.
// Returns the number of units written; *consumed receives the bytes used.
//
// At the AVX2 level the vector code takes windows of up to 64 bytes as long
// as they begin with a valid sequence of up to three bytes; what stops it (a
// four-byte sequence, an invalid byte, the last 63 bytes) goes through the
// code below, one sequence at a time, before the vector code takes over again.
// more (never with final) says that the data goes on after n and that the
// caller passes what is not consumed again with it: the last 63 bytes are
// then left unconsumed, whole sequences or not, for the vector code of the
// next call.
size_t DecodeUtf8Run(const unsigned char* src, size_t n, UCChar* dst, bool final, size_t* consumed,
                     bool more = false) {
    const unsigned char* p = src;
    const unsigned char* const end = src + n;
    UCChar* out = dst;
#if defined(__x86_64__)
    const bool wide = g_ozmUtf8Level.load(std::memory_order_relaxed) >= kOzmUtf8Avx2;
#else
    const bool wide = false;
#endif
    constexpr ptrdiff_t kWindow = 64;
    for (;;) {
#if defined(__x86_64__)
        if (wide) {
            if (end - p >= kWindow) {
                size_t units;
                p += OzmDecodeUtf8Avx2(p, static_cast<size_t>(end - p), out, &units);
                out += units;
                if (end - p >= kWindow)
                    goto sequence;
            }
            if (more && p != src)
                break;
        }
#endif
        // ASCII runs go through a block at a time. Units are stored for the
        // whole block even when it holds a non-ASCII byte; only the ASCII
        // prefix is kept, and dst always has room for a whole block here.
#if defined(__SSE2__)
        while (end - p >= 16) {
            const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
            const __m128i zero = _mm_setzero_si128();
            _mm_storeu_si128(reinterpret_cast<__m128i*>(out), _mm_unpacklo_epi8(v, zero));
            _mm_storeu_si128(reinterpret_cast<__m128i*>(out + 8), _mm_unpackhi_epi8(v, zero));
            const unsigned mask = static_cast<unsigned>(_mm_movemask_epi8(v));
            if (mask) {
                const unsigned k = static_cast<unsigned>(__builtin_ctz(mask));
                p += k;
                out += k;
                break;
            }
            p += 16;
            out += 16;
        }
#endif
        while (end - p >= 8) {
            uint64_t word;
            std::memcpy(&word, p, 8);
            if (word & 0x8080808080808080ULL)
                break;
            for (int i = 0; i < 8; ++i)
                out[i] = p[i];
            p += 8;
            out += 8;
        }
        if (p == end)
            break;
    // Non-ASCII text comes in runs: after a multi-byte sequence another one
    // is decoded straight away, without probing for an ASCII block first.
    sequence:
        const unsigned b0 = *p;
        if (b0 < 0x80) {
            *out++ = static_cast<UCChar>(b0);
            ++p;
            continue;
        }
        const size_t avail = static_cast<size_t>(end - p);
        if (b0 >= 0xC2 && b0 <= 0xDF) {
            if (avail >= 2) {
                if ((p[1] & 0xC0) == 0x80) {
                    *out++ = static_cast<UCChar>(((b0 & 0x1F) << 6) | (p[1] & 0x3F));
                    p += 2;
                    if (p != end && *p >= 0x80 && !(wide && end - p >= kWindow))
                        goto sequence;
                    continue;
                }
            } else if (!final) {
                break;
            }
        } else if (b0 >= 0xE0 && b0 <= 0xEF) {
            // E0 needs A0..BF next (no overlongs), ED needs 80..9F (no surrogates).
            const unsigned lo = b0 == 0xE0 ? 0xA0 : 0x80;
            const unsigned hi = b0 == 0xED ? 0x9F : 0xBF;
            if (avail >= 2 && (p[1] < lo || p[1] > hi)) {
                // invalid
            } else if (avail >= 3) {
                if ((p[2] & 0xC0) == 0x80) {
                    *out++ = static_cast<UCChar>(((b0 & 0x0F) << 12) | ((p[1] & 0x3F) << 6) | (p[2] & 0x3F));
                    p += 3;
                    if (p != end && *p >= 0x80 && !(wide && end - p >= kWindow))
                        goto sequence;
                    continue;
                }
            } else if (!final) {
                break;
            }
        } else if (b0 >= 0xF0 && b0 <= 0xF4) {
            // F0 needs 90..BF next (no overlongs), F4 needs 80..8F (nothing past U+10FFFF).
            const unsigned lo = b0 == 0xF0 ? 0x90 : 0x80;
            const unsigned hi = b0 == 0xF4 ? 0x8F : 0xBF;
            if (avail >= 2 && (p[1] < lo || p[1] > hi)) {
                // invalid
            } else if (avail >= 3 && (p[2] & 0xC0) != 0x80) {
                // invalid
            } else if (avail >= 4) {
                if ((p[3] & 0xC0) == 0x80) {
                    const uint32_t cp = ((b0 & 0x07u) << 18) | ((p[1] & 0x3Fu) << 12) | ((p[2] & 0x3Fu) << 6) |
                                        (p[3] & 0x3Fu);
                    out[0] = static_cast<UCChar>(0xD800 + ((cp - 0x10000) >> 10));
                    out[1] = static_cast<UCChar>(0xDC00 + (cp & 0x3FF));
                    out += 2;
                    p += 4;
                    continue;
                }
            } else if (!final) {
                break;
            }
        }
        // Not the start of a valid sequence: the byte stands for itself.
        *out++ = static_cast<UCChar>(b0);
        ++p;
    }
    *consumed = static_cast<size_t>(p - src);
    return static_cast<size_t>(out - dst);
}

bool IsUtf8Bom(const unsigned char* p) { return p[0] == 0xEF && p[1] == 0xBB && p[2] == 0xBF; }

// The first n (< 3) bytes of a UTF-8 byte-order mark.
bool IsUtf8BomPrefix(const unsigned char* p, size_t n) {
    static const unsigned char bom[3] = {0xEF, 0xBB, 0xBF};
    return std::memcmp(p, bom, n) == 0;
}

// Units of n / 2 UTF-16 byte pairs.
size_t DecodeUtf16Run(const unsigned char* src, size_t n, UCChar* dst, bool bigEndian) {
    const size_t units = n / 2;
    const bool native = bigEndian == (__BYTE_ORDER__ == __ORDER_BIG_ENDIAN__);
    if (native) {
        std::memcpy(dst, src, units * 2);
    } else if (bigEndian) {
        for (size_t i = 0; i < units; ++i)
            dst[i] = static_cast<UCChar>((src[2 * i] << 8) | src[2 * i + 1]);
    } else {
        for (size_t i = 0; i < units; ++i)
            dst[i] = static_cast<UCChar>(src[2 * i] | (src[2 * i + 1] << 8));
    }
    return units;
}

bool IsUtf16Format(int format) { return format == 4 || format == 0x6004 || format == 0xA004; }

bool IsKnownFormat(int format) { return format == 1 || format == 8 || IsUtf16Format(format); }

int RetryClose(int fd) {
    // On Linux the descriptor is released even when close reports EINTR.
    int rc = ::close(fd);
    return (rc == 0 || errno == EINTR) ? 0 : -1;
}

}  // namespace

void OzmGlob::DecodeUTF8(const unsigned char* data, size_t length, UCString& out) {
    if (!data || length == 0) {
        out.clear();
        return;
    }
    if (length >= 3 && IsUtf8Bom(data)) {
        data += 3;
        length -= 3;
    }
    // Decoded a block at a time into a local buffer and appended: resizing
    // the string first would fill it with zeros only to overwrite them (which
    // costs more than the copy). The block's 8,000 bytes stay below the size
    // from which the C library copies with string instructions, which
    // instruction counts show a byte at a time. A sequence cut by the end of
    // a block is decoded at the start of the next; so are the last bytes of a
    // block that the vector code leaves.
    out.clear();
    out.reserve(length);
    constexpr size_t kBlock = 4000;
    UCChar units[kBlock];
    while (length > 0) {
        const bool final = length <= kBlock;
        size_t consumed;
        const size_t n = DecodeUtf8Run(data, final ? length : kBlock, units, final, &consumed, !final);
        out.append(units, n);
        data += consumed;
        length -= consumed;
    }
}

// ---------------------------------------------------------------------------
// OzmBFile

OzmBFile::OzmBFile() = default;

OzmBFile::OzmBFile(const OzmBFile& other) { CopyFrom(other); }

OzmBFile& OzmBFile::operator=(const OzmBFile& other) {
    if (this != &other) {
        Close();
        CopyFrom(other);
    }
    return *this;
}

OzmBFile::~OzmBFile() { Close(); }

// Duplicates the descriptor of other. Its pending output is flushed first, so
// that it is written once, and its unread input is copied, so that the copy
// reads on from the same place.
void OzmBFile::CopyFrom(const OzmBFile& other) {
    if (other.m_handle == -1)
        return;
    const_cast<OzmBFile&>(other).Flush();
    int fd = ::fcntl(other.m_handle, F_DUPFD_CLOEXEC, 0);
    if (fd < 0)
        return;
    m_buffer = new (std::nothrow) unsigned char[kHeadroom + kBufferSize];
    if (!m_buffer) {
        RetryClose(fd);
        return;
    }
    m_handle = fd;
    m_owned = true;
    m_writable = other.m_writable;
    ResetBuffers();
    size_t unread = static_cast<size_t>(other.m_readEnd - other.m_readPos);
    if (unread) {
        std::memcpy(m_buffer + kHeadroom, other.m_readPos, unread);
        m_readPos = m_buffer + kHeadroom;
        m_readEnd = m_readPos + unread;
    }
}

int OzmBFile::OpenBytes(const char* path, const char* mode) {
    Close();
    if (!path || !mode || !*path) {
        errno = path && mode ? ENOENT : EINVAL;
        return -1;
    }
    int flags;
    switch (mode[0]) {
    case 'r':
        flags = O_RDONLY;
        break;
    case 'w':
        flags = O_WRONLY | O_CREAT | O_TRUNC;
        break;
    case 'a':
        flags = O_WRONLY | O_CREAT | O_APPEND;
        break;
    default:
        errno = EINVAL;
        return -1;
    }
    for (const char* m = mode + 1; *m; ++m) {
        if (*m == '+')
            flags = (flags & ~(O_RDONLY | O_WRONLY)) | O_RDWR;
        else if (*m == 'x' && mode[0] == 'w')
            flags |= O_EXCL;
        else if (*m != 'b' && *m != 'e')
            return errno = EINVAL, -1;
    }
    int fd;
    do {
        fd = ::open(path, flags | O_CLOEXEC, 0666);
    } while (fd < 0 && errno == EINTR);
    if (fd < 0)
        return -1;
    struct stat st;
    int err = ::fstat(fd, &st) != 0 ? errno : S_ISDIR(st.st_mode) ? EISDIR : 0;
    if (err) {
        RetryClose(fd);
        errno = err;
        return -1;
    }
    m_buffer = new (std::nothrow) unsigned char[kHeadroom + kBufferSize];
    if (!m_buffer) {
        RetryClose(fd);
        errno = ENOMEM;
        return -1;
    }
    m_handle = fd;
    m_owned = true;
    m_writable = (flags & (O_WRONLY | O_RDWR)) != 0;
    ResetBuffers();
    return 0;
}

int OzmBFile::AttachDescriptor(int fd, bool writable, bool owned) {
    Close();
    if (fd < 0 || ::fcntl(fd, F_GETFD) == -1) {
        errno = EBADF;
        return -1;
    }
    m_buffer = new (std::nothrow) unsigned char[kHeadroom + kBufferSize];
    if (!m_buffer) {
        errno = ENOMEM;
        return -1;
    }
    m_handle = fd;
    m_owned = owned;
    m_writable = writable;
    ResetBuffers();
    return 0;
}

int OzmBFile::Close() {
    if (m_handle == -1)
        return 0;
    int rc = Flush();
    if (m_owned && RetryClose(m_handle) != 0)
        rc = -1;
    m_handle = -1;
    m_owned = false;
    m_writable = false;
    ResetBuffers();
    delete[] m_buffer;
    m_buffer = nullptr;
    m_readPos = m_readEnd = nullptr;
    return rc;
}

void OzmBFile::ResetBuffers() {
    m_readPos = m_readEnd = m_buffer ? m_buffer + kHeadroom : nullptr;
    m_writeUsed = 0;
}

// Gives back read-ahead before writing, so that output lands where the
// reader stands (a no-op on descriptors that cannot seek).
void OzmBFile::DropReadAhead() {
    if (m_readPos < m_readEnd)
        ::lseek(m_handle, -static_cast<off_t>(m_readEnd - m_readPos), SEEK_CUR);
    m_readPos = m_readEnd;
}

int OzmBFile::WriteOut(const unsigned char* data, size_t n) {
    while (n > 0) {
        ssize_t w = ::write(m_handle, data, n);
        if (w < 0) {
            if (errno == EINTR)
                continue;
            return -1;
        }
        data += w;
        n -= static_cast<size_t>(w);
    }
    return 0;
}

int OzmBFile::Flush() {
    if (m_handle == -1 || m_writeUsed == 0)
        return 0;
    size_t n = m_writeUsed;
    m_writeUsed = 0;  // on failure the data is dropped rather than retried forever
    return WriteOut(m_buffer + kHeadroom, n);
}

long OzmBFile::FillBuffer() {
    if (m_handle == -1 || !m_buffer)
        return -1;
    if (m_writeUsed && Flush() != 0)
        return -1;
    unsigned char* data = m_buffer + kHeadroom;
    ssize_t n;
    do {
        n = ::read(m_handle, data, kBufferSize);
    } while (n < 0 && errno == EINTR);
    m_readPos = data;
    m_readEnd = data + (n > 0 ? n : 0);
    return static_cast<long>(n);
}

int OzmBFile::FillAndGet() {
    if (FillBuffer() <= 0)
        return -1;
    return *m_readPos++;
}

size_t OzmBFile::ReadBytes(unsigned char* out, size_t n) {
    size_t done = 0;
    while (done < n) {
        size_t avail = static_cast<size_t>(m_readEnd - m_readPos);
        if (avail) {
            size_t take = avail < n - done ? avail : n - done;
            std::memcpy(out + done, m_readPos, take);
            m_readPos += take;
            done += take;
            continue;
        }
        if (m_handle == -1)
            break;
        if (n - done >= kBufferSize) {
            // Large requests bypass the buffer.
            if (m_writeUsed && Flush() != 0)
                break;
            ssize_t r;
            do {
                r = ::read(m_handle, out + done, n - done);
            } while (r < 0 && errno == EINTR);
            if (r <= 0)
                break;
            done += static_cast<size_t>(r);
            continue;
        }
        if (FillBuffer() <= 0)
            break;
    }
    return done;
}

int OzmBFile::PutBytes(const void* data, size_t n) {
    if (m_handle == -1 || !m_writable) {
        errno = EBADF;
        return -1;
    }
    DropReadAhead();
    const unsigned char* src = static_cast<const unsigned char*>(data);
    if (n <= kBufferSize - m_writeUsed) {
        std::memcpy(m_buffer + kHeadroom + m_writeUsed, src, n);
        m_writeUsed += n;
        return 0;
    }
    if (Flush() != 0)
        return -1;
    if (n >= kBufferSize)
        return WriteOut(src, n);
    std::memcpy(m_buffer + kHeadroom, src, n);
    m_writeUsed = n;
    return 0;
}

int OzmBFile::SeekBytes(int64_t offset, int origin) {
    if (m_handle == -1)
        return -1;
    int whence;
    switch (origin) {
    case 0:
        whence = SEEK_SET;
        break;
    case 1:
        whence = SEEK_CUR;
        offset -= m_readEnd - m_readPos;  // the file offset is past the read-ahead
        break;
    case 2:
        whence = SEEK_END;
        break;
    default:
        errno = EINVAL;
        return -1;
    }
    if (Flush() != 0)
        return -1;
    if (::lseek(m_handle, static_cast<off_t>(offset), whence) < 0)
        return -1;
    ResetBuffers();
    return 0;
}

// ---------------------------------------------------------------------------
// OzmUCFile

OzmUCFile::OzmUCFile() = default;

OzmUCFile::OzmUCFile(const OzmUCFile& other) : OzmBFile(other) { CopyState(other); }

OzmUCFile& OzmUCFile::operator=(const OzmUCFile& other) {
    if (this != &other) {
        Close();
        OzmBFile::operator=(other);
        CopyState(other);
    }
    return *this;
}

OzmUCFile::~OzmUCFile() { Close(); }

// Takes over the decoding state and the decoded units not yet read, so that
// the copy reads on where the original stands. A pending high surrogate of
// output stays with the original, which writes it.
void OzmUCFile::CopyState(const OzmUCFile& other) {
    m_format = other.m_format;
    if (m_handle == -1)
        return;
    m_byteOrder = other.m_byteOrder;
    m_atStart = other.m_atStart;
    m_ended = other.m_ended;
    std::memcpy(m_carry, other.m_carry, sizeof m_carry);
    m_carryCount = other.m_carryCount;
    size_t pending = static_cast<size_t>(other.m_ucEnd - other.m_ucPos);
    if (pending) {
        m_ucBuffer = new (std::nothrow) UCChar[kUnits];
        if (!m_ucBuffer)
            return;
        std::memcpy(m_ucBuffer, other.m_ucPos, pending * sizeof(UCChar));
        m_ucPos = m_ucBuffer;
        m_ucEnd = m_ucBuffer + pending;
    }
    m_unitsDecoded = other.UnitsRead() + pending;
}

void OzmUCFile::ResetDecoding() {
    m_unitsDecoded = 0;
    m_ucPos = m_ucEnd = m_ucBuffer;
    m_byteOrder = 0;
    m_atStart = true;
    m_ended = false;
    m_carryCount = 0;
}

int OzmUCFile::Open(const UCChar* path, const UCChar* mode, int format, OZM_CSET set) {
    Close();
    if (!IsKnownFormat(format) || !path || !mode) {
        errno = EINVAL;
        return -1;
    }
    std::string narrowPath;
    if (!OzmGlob::WStringToString(UCString(path), narrowPath, set)) {
        errno = ENOENT;  // the name cannot be expressed in its character set
        return -1;
    }
    char narrowMode[8];
    size_t i = 0;
    for (; mode[i]; ++i) {
        if (i + 1 >= sizeof narrowMode || mode[i] > 0x7F) {
            errno = EINVAL;
            return -1;
        }
        narrowMode[i] = static_cast<char>(mode[i]);
    }
    narrowMode[i] = 0;
    if (OpenBytes(narrowPath.c_str(), narrowMode) != 0)
        return -1;
    m_format = format;
    ResetDecoding();
    m_pendingHigh = 0;
    // A new or emptied UTF-16 file starts with a little-endian mark.
    if (format == 4 && (narrowMode[0] == 'w' || narrowMode[0] == 'a')) {
        struct stat st;
        if (::fstat(m_handle, &st) == 0 && st.st_size == 0) {
            static const unsigned char bom[2] = {0xFF, 0xFE};
            if (PutBytes(bom, 2) != 0) {
                Close();
                return -1;
            }
        }
    }
    return 0;
}

int OzmUCFile::OpenDescriptor(int fd, int format, bool owned) {
    Close();
    if (!IsKnownFormat(format)) {
        errno = EINVAL;
        return -1;
    }
    if (AttachDescriptor(fd, false, owned) != 0)
        return -1;
    m_format = format;
    ResetDecoding();
    m_pendingHigh = 0;
    return 0;
}

int OzmUCFile::Close() {
    int rc = 0;
    if (m_pendingHigh && m_handle != -1) {
        unsigned char bytes[4];
        rc = PutBytes(bytes, OzmFlushUtf8(&m_pendingHigh, bytes));
    }
    m_pendingHigh = 0;
    if (OzmBFile::Close() != 0)
        rc = -1;
    delete[] m_ucBuffer;
    m_ucBuffer = nullptr;
    ResetDecoding();
    return rc;
}

int OzmUCFile::Seek(int64_t offset, int origin) {
    // Decoded read-ahead makes a relative byte offset meaningless.
    if (m_handle == -1 || origin == 1)
        return -1;
    if (m_pendingHigh) {
        unsigned char bytes[4];
        if (PutBytes(bytes, OzmFlushUtf8(&m_pendingHigh, bytes)) != 0)
            return -1;
    }
    if (SeekBytes(offset, origin) != 0)
        return -1;
    ResetDecoding();
    m_atStart = ::lseek(m_handle, 0, SEEK_CUR) == 0;
    return 0;
}

UCChar OzmUCFile::Deliver(size_t units) {
    m_unitsDecoded += units;
    m_ucPos = m_ucBuffer;
    m_ucEnd = m_ucBuffer + units;
    return *m_ucPos++;
}

UCChar OzmUCFile::EndOfInput() {
    m_ended = true;
    m_ucPos = m_ucEnd = m_ucBuffer;
    return UCEof;
}

// Decodes the next chunk of the byte buffer in the current format. Bytes of
// a character cut off at the end of the buffer wait in m_carry and are put
// back in front of the next block (into the buffer's headroom).
UCChar OzmUCFile::Refill() {
    if (m_ended || m_handle == -1) {
        m_ucPos = m_ucEnd;
        return UCEof;
    }
    // Running out of memory is no end of the input: it throws.
    if (!m_ucBuffer)
        m_ucBuffer = new UCChar[kUnits];
    const bool utf16 = IsUtf16Format(m_format);
    for (;;) {
        if (m_readPos == m_readEnd && FillBuffer() <= 0) {
            size_t units = 0;
            if (m_carryCount && !utf16) {
                size_t used;
                units = DecodeUtf8Run(m_carry, static_cast<size_t>(m_carryCount), m_ucBuffer, true, &used);
            }
            // An odd byte left over from UTF-16 is dropped.
            m_carryCount = 0;
            return units ? Deliver(units) : EndOfInput();
        }
        unsigned char* p = m_buffer + (m_readPos - m_buffer) - m_carryCount;
        std::memcpy(p, m_carry, static_cast<size_t>(m_carryCount));
        m_carryCount = 0;
        if (m_atStart) {
            size_t avail = static_cast<size_t>(m_readEnd - p);
            if (utf16) {
                if (avail >= 2) {
                    const bool le = p[0] == 0xFF && p[1] == 0xFE;
                    const bool be = p[0] == 0xFE && p[1] == 0xFF;
                    if (m_format == 4) {
                        m_byteOrder = be ? 2 : 1;
                        if (le || be)
                            p += 2;
                    } else if ((m_format == 0x6004 && le) || (m_format == 0xA004 && be)) {
                        p += 2;
                    }
                    m_atStart = false;
                }
            } else if (avail >= 3) {
                if (IsUtf8Bom(p))
                    p += 3;
                m_atStart = false;
            } else if (!IsUtf8BomPrefix(p, avail)) {
                m_atStart = false;
            }
        }
        const size_t left = static_cast<size_t>(m_readEnd - p);
        const size_t take = left < kUnits ? left : kUnits;
        size_t used;
        size_t units;
        if (utf16) {
            const bool big = m_format == 0xA004 || (m_format == 4 && m_byteOrder == 2);
            units = DecodeUtf16Run(p, take, m_ucBuffer, big);
            used = units * 2;
        } else {
            units = DecodeUtf8Run(p, take, m_ucBuffer, false, &used);
        }
        p += used;
        m_readPos = p;
        if (take == left && used < left) {
            m_carryCount = static_cast<int>(left - used);
            std::memcpy(m_carry, p, static_cast<size_t>(m_carryCount));
            m_readPos = m_readEnd;
        }
        if (units)
            return Deliver(units);
    }
}

int OzmUCFile::Putc(UCChar c) {
    // ASCII into UTF-8 output with room in the buffer: one store.
    if (c < 0x80 && m_writable && !m_pendingHigh && m_writeUsed < kBufferSize && m_readPos == m_readEnd &&
        !IsUtf16Format(m_format)) {
        m_buffer[kHeadroom + m_writeUsed++] = static_cast<unsigned char>(c);
        return 0;
    }
    return PutUnits(&c, 1);
}

int OzmUCFile::PutString(const UCChar* text, long length) {
    if (!text)
        return length <= 0 ? 0 : -1;
    size_t n;
    if (length < 0) {
        n = 0;
        while (text[n])
            ++n;
    } else {
        n = static_cast<size_t>(length);
    }
    return PutUnits(text, n);
}

// Encodes count units in the current format into the byte buffer, a block
// of bytes at a time. Returns 0, or -1 when the file is not writable or a
// write fails.
int OzmUCFile::PutUnits(const UCChar* text, size_t count) {
    if (m_handle == -1 || !m_writable) {
        errno = EBADF;
        return -1;
    }
    unsigned char block[4096];
    size_t used = 0;
    if (IsUtf16Format(m_format)) {
        const bool big = m_format == 0xA004;
        for (size_t i = 0; i < count; ++i) {
            if (used + 2 > sizeof block) {
                if (PutBytes(block, used) != 0)
                    return -1;
                used = 0;
            }
            const UCChar c = text[i];
            block[used++] = static_cast<unsigned char>(big ? c >> 8 : c & 0xFF);
            block[used++] = static_cast<unsigned char>(big ? c & 0xFF : c >> 8);
        }
        return used ? PutBytes(block, used) : 0;
    }
    // Each step encodes as many units as the block has room for in the
    // worst case: three bytes a unit, and three for a waiting surrogate.
    for (size_t i = 0; i < count;) {
        if (sizeof block - used < 3 + 3 + 3) {
            if (PutBytes(block, used) != 0)
                return -1;
            used = 0;
        }
        const size_t n = std::min(count - i, (sizeof block - used - 3) / 3);
        used += OzmEncodeUtf8(text + i, n, block + used, &m_pendingHigh);
        i += n;
    }
    return used ? PutBytes(block, used) : 0;
}
