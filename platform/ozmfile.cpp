// ozmfile.cpp - buffered byte files (OzmBFile) and text files of UCChar units
// (OzmUCFile), which decode through OzmTextDecoder (ozmdecode.cpp).
#include "ozmutil.h"
#include "platform/ozmutf8.h"

#include <cerrno>
#include <algorithm>
#include <cstring>
#include <new>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

bool IsUtf16Format(int format) { return format == 4 || format == 0x6004 || format == 0xA004; }

bool IsKnownFormat(int format) { return format == 1 || format == 8 || IsUtf16Format(format); }

int RetryClose(int fd) {
    // On Linux the descriptor is released even when close reports EINTR.
    int rc = ::close(fd);
    return (rc == 0 || errno == EINTR) ? 0 : -1;
}

}  // namespace

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
    if (other.m_memory) {
        // The copy reads the same bytes on from the same place.
        m_memory = true;
        m_memBegin = other.m_memBegin;
        m_memNext = other.m_memNext;
        m_memEnd = other.m_memEnd;
        m_readPos = other.m_readPos;
        m_readEnd = other.m_readEnd;
        return;
    }
    if (other.m_handle == -1)
        return;
    const_cast<OzmBFile&>(other).Flush();
    int fd = ::fcntl(other.m_handle, F_DUPFD_CLOEXEC, 0);
    if (fd < 0)
        return;
    if (!HaveBuffer()) {
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

bool OzmBFile::HaveBuffer() {
    if (!m_buffer)
        m_buffer = new (std::nothrow) unsigned char[kHeadroom + kBufferSize];
    return m_buffer != nullptr;
}

int OzmBFile::OpenBytes(const char* path, const char* mode) {
    CloseSource(true);
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
    if (!HaveBuffer()) {
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
    CloseSource(true);
    if (fd < 0 || ::fcntl(fd, F_GETFD) == -1) {
        errno = EBADF;
        return -1;
    }
    if (!HaveBuffer()) {
        errno = ENOMEM;
        return -1;
    }
    m_handle = fd;
    m_owned = owned;
    m_writable = writable;
    ResetBuffers();
    return 0;
}

int OzmBFile::AttachMemory(const void* data, size_t n) {
    CloseSource(true);
    if (!data && n) {
        errno = EINVAL;
        return -1;
    }
    static const unsigned char kNothing = 0;
    m_memory = true;
    m_memBegin = m_memNext = data ? static_cast<const unsigned char*>(data) : &kNothing;
    m_memEnd = m_memBegin + n;
    ResetBuffers();
    return 0;
}

int OzmBFile::Close() { return CloseSource(false); }

int OzmBFile::CloseSource(bool keepBuffer) {
    int rc = 0;
    if (m_handle != -1) {
        rc = Flush();
        if (m_owned && RetryClose(m_handle) != 0)
            rc = -1;
    }
    m_handle = -1;
    m_owned = false;
    m_writable = false;
    m_memory = false;
    m_memBegin = m_memNext = m_memEnd = nullptr;
    if (!keepBuffer) {
        delete[] m_buffer;
        m_buffer = nullptr;
    }
    m_readPos = m_readEnd = nullptr;
    m_writeUsed = 0;
    return rc;
}

void OzmBFile::ResetBuffers() {
    if (m_memory)
        m_readPos = m_readEnd = m_memNext;
    else
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
    if (m_memory) {
        const size_t n = std::min(kBufferSize, size_t(m_memEnd - m_memNext));
        m_readPos = m_memNext;
        m_readEnd = m_memNext += n;
        return long(n);
    }
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

long OzmBFile::FillMore() {
    if (m_memory) {
        // The window grows over the bytes behind it, which follow in memory.
        const size_t have = size_t(m_readEnd - m_readPos);
        const size_t n = std::min(kBufferSize - have, size_t(m_memEnd - m_memNext));
        m_readEnd = m_memNext += n;
        return long(n);
    }
    if (m_handle == -1 || !m_buffer)
        return -1;
    if (m_writeUsed && Flush() != 0)
        return -1;
    unsigned char* data = m_buffer + kHeadroom;
    const size_t have = static_cast<size_t>(m_readEnd - m_readPos);
    std::memmove(data, m_readPos, have);
    m_readPos = data;
    m_readEnd = data + have;
    if (have == kBufferSize)
        return 0;
    ssize_t n;
    do {
        n = ::read(m_handle, data + have, kBufferSize - have);
    } while (n < 0 && errno == EINTR);
    if (n > 0)
        m_readEnd += n;
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
        if (!IsOpen())
            break;
        if (n - done >= kBufferSize && !m_memory) {
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
    if (m_memory) {
        const int64_t size = m_memEnd - m_memBegin;
        const int64_t at = origin == 0 ? 0 : origin == 1 ? (m_memNext - m_memBegin) - (m_readEnd - m_readPos) : size;
        if (origin < 0 || origin > 2 || offset < -at || offset > size - at) {
            errno = EINVAL;
            return -1;
        }
        m_memNext = m_memBegin + (at + offset);
        ResetBuffers();
        return 0;
    }
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
    if (!IsOpen())
        return;
    m_decoder = other.m_decoder;
    m_atStart = other.m_atStart;
    m_ended = other.m_ended;
    m_eof = other.m_eof;
    m_invalidAhead = other.m_invalidAhead;
    m_decodeFailed = other.m_decodeFailed;
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
    m_decoder.Reset(m_format);
    m_atStart = true;
    m_ended = m_eof = m_invalidAhead = m_decodeFailed = false;
    m_carryCount = 0;
}

int OzmUCFile::Open(const UCChar* path, const UCChar* mode, int format, OZM_CSET set) {
    CloseKeepingBuffers();
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
    CloseKeepingBuffers();
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

int OzmUCFile::OpenMemory(const void* data, size_t n, int format) {
    CloseKeepingBuffers();
    if (!IsKnownFormat(format)) {
        errno = EINVAL;
        return -1;
    }
    if (AttachMemory(data, n) != 0)
        return -1;
    m_format = format;
    ResetDecoding();
    m_pendingHigh = 0;
    return 0;
}

int OzmUCFile::Close() {
    const int rc = CloseKeepingBuffers();
    OzmBFile::Close();
    delete[] m_ucBuffer;
    m_ucBuffer = nullptr;
    ResetDecoding();
    return rc;
}

int OzmUCFile::CloseKeepingBuffers() {
    int rc = 0;
    if (m_pendingHigh && m_handle != -1) {
        unsigned char bytes[4];
        rc = PutBytes(bytes, OzmFlushUtf8(&m_pendingHigh, bytes));
    }
    m_pendingHigh = 0;
    if (CloseSource(true) != 0)
        rc = -1;
    ResetDecoding();
    return rc;
}

int OzmUCFile::Seek(int64_t offset, int origin) {
    // Decoded read-ahead makes a relative byte offset meaningless.
    if (!IsOpen() || origin == 1)
        return -1;
    if (m_pendingHigh) {
        unsigned char bytes[4];
        if (PutBytes(bytes, OzmFlushUtf8(&m_pendingHigh, bytes)) != 0)
            return -1;
    }
    if (SeekBytes(offset, origin) != 0)
        return -1;
    ResetDecoding();
    m_atStart = m_memory ? m_memNext == m_memBegin : ::lseek(m_handle, 0, SEEK_CUR) == 0;
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

// Lets the decoder decide how the text is read: from its first bytes, read
// until they decide or the buffer is full, when the file is read from its
// start (a byte-order mark or a declaration may stand there); from nothing
// otherwise. False on a read error.
bool OzmUCFile::BeginDecoding() {
    m_decoder.Reset(m_format);
    size_t skip = 0;
    if (!m_atStart) {
        m_decoder.Begin(nullptr, 0, true, skip);
        return true;
    }
    for (;;) {
        const size_t avail = static_cast<size_t>(m_readEnd - m_readPos);
        const bool full = avail == kBufferSize;
        if (m_decoder.Begin(m_readPos, avail, m_eof || full, skip) != OzmTextDecoder::decNeedMore)
            break;
        const long got = FillMore();
        if (got < 0)
            return false;
        m_eof = got == 0;
    }
    m_readPos += skip;
    m_atStart = false;
    return true;
}

// Decodes the next block of the byte buffer. The bytes of a character cut
// off at the end of the buffer wait in m_carry and are put back in front of
// the next block (into the buffer's headroom). Invalid bytes end the input
// once the units in front of them have been read.
UCChar OzmUCFile::Refill() {
    if (m_ended || !IsOpen()) {
        m_ucPos = m_ucEnd;
        return UCEof;
    }
    if (m_invalidAhead) {
        m_decodeFailed = true;
        return EndOfInput();
    }
    // Running out of memory is no end of the input: it throws.
    if (!m_ucBuffer)
        m_ucBuffer = new UCChar[kUnits];
    if (!m_decoder.Begun() && !BeginDecoding())
        return EndOfInput();
    for (;;) {
        OzmTextDecoder::Status status;
        size_t used, units;
        if (m_readPos == m_readEnd && (m_eof || FillBuffer() <= 0)) {
            // The end: what was held back is decoded for good.
            m_eof = true;
            const size_t count = static_cast<size_t>(m_carryCount);
            status = m_decoder.Decode(m_carry, count, m_ucBuffer, kUnits, true, used, units);
            m_carryCount = static_cast<int>(count - used);
            std::memmove(m_carry, m_carry + used, static_cast<size_t>(m_carryCount));
            if (status == OzmTextDecoder::decDone)
                m_carryCount = 0;
        } else {
            // A memory source has the carried bytes in front of its window
            // already; a file's go into the headroom of its buffer.
            const unsigned char* p = m_readPos - m_carryCount;
            if (!m_memory)
                std::memcpy(m_buffer + (p - m_buffer), m_carry, static_cast<size_t>(m_carryCount));
            m_carryCount = 0;
            const size_t left = static_cast<size_t>(m_readEnd - p);
            status = m_decoder.Decode(p, left, m_ucBuffer, kUnits, false, used, units);
            m_readPos = p + used;
            if (status == OzmTextDecoder::decNeedMore) {
                m_carryCount = static_cast<int>(left - used);
                std::memcpy(m_carry, m_readPos, static_cast<size_t>(m_carryCount));
                m_readPos = m_readEnd;
            }
        }
        if (status == OzmTextDecoder::decInvalid) {
            if (units) {
                m_invalidAhead = true;
                return Deliver(units);
            }
            m_decodeFailed = true;
            return EndOfInput();
        }
        if (units)
            return Deliver(units);
        if (m_eof && status == OzmTextDecoder::decDone)
            return EndOfInput();
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
