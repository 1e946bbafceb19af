// XmlOutputStream: delivery of text and single units to up to five targets,
// in the fixed order stdio file, OzmUCFile, I/O module, UCString, UTF-8 string.
#include "xmloutput.h"

#include <cerrno>
#include <cstdarg>
#include <cstring>

#include <fcntl.h>
#include <unistd.h>

#include "platform/ozmutf8.h"

namespace {

// Encodes count units as UTF-8 into out, which has room for three bytes a
// unit, and returns the number of bytes. Each unit is encoded by itself (a
// surrogate gives its own three bytes, pairs are not joined). dropZero leaves
// zero units out, as fputs of a converted zero unit would.
size_t EncodeRun(const UCChar* units, size_t count, bool dropZero, char* out) {
    return OzmEncodeUtf8(units, count, reinterpret_cast<unsigned char*>(out), nullptr, dropZero);
}

// A FILE of its own for a copy of a stream: a new FILE over a duplicate of
// the descriptor, opened in the access mode of the original. The original is
// flushed first so that what it holds lands before anything the copy writes.
// Null when the file has no descriptor or it cannot be duplicated.
FILE* DuplicateFile(FILE* file) {
    std::fflush(file);
    int fd = ::fileno(file);
    if (fd < 0)
        return nullptr;
    int flags = ::fcntl(fd, F_GETFL);
    if (flags < 0)
        return nullptr;
    const char* mode;
    switch (flags & O_ACCMODE) {
    case O_RDONLY:
        mode = "r";
        break;
    case O_WRONLY:
        mode = (flags & O_APPEND) ? "a" : "w";
        break;
    default:
        mode = (flags & O_APPEND) ? "a+" : "r+";
        break;
    }
    int copy = ::fcntl(fd, F_DUPFD_CLOEXEC, 0);
    if (copy < 0)
        return nullptr;
    FILE* duplicate = ::fdopen(copy, mode);
    if (!duplicate)
        ::close(copy);
    return duplicate;
}

}  // namespace

XmlOutputStream::XmlOutputStream()
    : m_file(nullptr), m_string(nullptr), m_utfString(nullptr), m_ownsFile(false), m_ucFileError(0), m_formatBuffer() {}

XmlOutputStream::XmlOutputStream(const XmlOutputStream& other)
    : m_file(nullptr),
      m_ucFile(other.m_ucFile),
      m_lwio(other.m_lwio),
      m_string(other.m_string),
      m_utfString(other.m_utfString),
      m_ownsFile(false),
      m_ucFileError(other.m_ucFileError) {
    std::memcpy(m_formatBuffer, other.m_formatBuffer, sizeof m_formatBuffer);
    if (other.m_file && other.m_ownsFile) {
        if (FILE* own = DuplicateFile(other.m_file)) {
            m_file = own;
            m_ownsFile = true;
            return;
        }
    }
    m_file = other.m_file;
}

XmlOutputStream& XmlOutputStream::operator=(const XmlOutputStream& other) {
    if (this == &other)
        return *this;
    // Nothing of what is overwritten is closed here; it is kept until Close.
    if (m_file && m_ownsFile)
        m_retiredFiles.push_back(m_file);
    m_file = nullptr;
    m_ownsFile = false;
    if (m_ucFile.IsOpen())
        m_retiredUCFiles.push_back(m_ucFile);
    if (m_lwio.IsConnected())
        m_retiredModules.push_back(m_lwio);
    if (other.m_file && other.m_ownsFile) {
        if (FILE* own = DuplicateFile(other.m_file))
            SetFilePointer(own, true);
        else
            SetFilePointer(other.m_file, false);
    } else {
        SetFilePointer(other.m_file, false);
    }
    m_ucFile = other.m_ucFile;
    m_ucFileError = other.m_ucFileError;
    m_lwio = other.m_lwio;
    m_string = other.m_string;
    m_utfString = other.m_utfString;
    std::memcpy(m_formatBuffer, other.m_formatBuffer, sizeof m_formatBuffer);
    return *this;
}

XmlOutputStream::~XmlOutputStream() { Close(); }

void XmlOutputStream::SetFilePointer(FILE* file, bool owns) {
    if (m_file && m_file != file) {
        if (m_ownsFile)
            std::fclose(m_file);
    }
    m_file = file;
    m_ownsFile = owns;
}

int XmlOutputStream::OpenUCFile(const UCChar* name, const UCChar* mode, int format) {
    m_ucFileError = 0;
    return m_ucFile.Open(name, mode, format, csetDefault);
}

int XmlOutputStream::AttachUCFile(int fd, int format) {
    m_ucFile.Close();
    m_ucFileError = 0;
    if (format != 1 && format != 8 && format != 4 && format != 0x6004 && format != 0xA004) {
        errno = EINVAL;
        return -1;
    }
    if (m_ucFile.AttachDescriptor(fd, true, false) != 0)
        return -1;
    m_ucFile.Format(format);
    return 0;
}

int XmlOutputStream::CloseUCFile() {
    if (m_ucFile.IsOpen() && m_ucFile.Close() != 0 && !m_ucFileError)
        m_ucFileError = errno ? errno : EIO;
    const int error = m_ucFileError;
    m_ucFileError = 0;
    if (!error)
        return 0;
    errno = error;
    return -1;
}

void XmlOutputStream::NoteUCFileError() {
    if (!m_ucFileError)
        m_ucFileError = errno ? errno : EIO;
}

BATCHERR XmlOutputStream::SetLWIOModule(const UCChar* module) { return m_lwio.SetModule(module); }

BATCHERR XmlOutputStream::OpenLWIO(const UCChar* resource, const UCChar* options, short mode) {
    return m_lwio.Open(resource, options, mode, false);
}

const UCChar* XmlOutputStream::LastLWIOMessage() { return m_lwio.LastErrorMessage(); }

void XmlOutputStream::Close() {
    if (m_file && m_ownsFile)
        std::fclose(m_file);
    m_file = nullptr;
    for (FILE* f : m_retiredFiles)
        std::fclose(f);
    m_retiredFiles.clear();
    for (OzmUCFile& f : m_retiredUCFiles)
        f.Close();
    m_retiredUCFiles.clear();
    // Dropping a retired module only lets go of this stream's share of the
    // connection; copies of the stream may still be using it.
    m_retiredModules.clear();
    // OzmUCFile's own Close: it also writes a high surrogate still waiting
    // for its partner before the file goes.
    if (m_ucFile.IsOpen())
        m_ucFile.Close();
    m_ucFileError = 0;
    if (m_lwio.IsConnected())
        m_lwio.Close();
}

// asText: the units are a terminated text, which the OzmUCFile takes in one
// PutString up to the terminator; otherwise a run of count units.
void XmlOutputStream::DeliverText(const UCChar* text, size_t count, bool asText) {
    if (m_file) {
        // Converted in m_narrow, whose storage the stream keeps, so that the
        // file gets large writes; at most kFileChunk units at a time.
        constexpr size_t kFileChunk = 65536;
        for (size_t done = 0; done < count;) {
            const size_t n = count - done < kFileChunk ? count - done : kFileChunk;
            if (m_narrow.size() < 3 * n)
                m_narrow.resize(3 * n);
            const size_t bytes = EncodeRun(text + done, n, true, &m_narrow[0]);
            std::fwrite(m_narrow.data(), 1, bytes, m_file);
            done += n;
        }
    }
    if (m_ucFile.IsOpen() && m_ucFile.PutString(text, asText ? -1 : static_cast<long>(count)) != 0)
        NoteUCFileError();
    if (m_lwio.IsConnected()) {
        for (size_t i = 0; i < count; ++i)
            m_lwio.PutC(text[i]);
    }
    if (m_string)
        m_string->append(text, count);
    if (m_utfString) {
        constexpr size_t kBlockUnits = 8192;
        char block[3 * kBlockUnits];
        for (size_t done = 0; done < count;) {
            const size_t n = count - done < kBlockUnits ? count - done : kBlockUnits;
            m_utfString->append(block, EncodeRun(text + done, n, false, block));
            done += n;
        }
    }
}

XmlOutputStream& XmlOutputStream::operator<<(const UCChar* text) {
    if (text) {
        size_t count = std::char_traits<UCChar>::length(text);
        if (count)
            DeliverText(text, count, true);
    }
    return *this;
}

XmlOutputStream& XmlOutputStream::Write(const UCChar* units, size_t count) {
    if (units && count)
        DeliverText(units, count, false);
    return *this;
}

XmlOutputStream& XmlOutputStream::operator<<(UCChar c) {
    if (m_file) {
        // A one-unit string converted to the narrow set; the string fits its
        // inline storage and m_narrow keeps its capacity, so nothing is
        // allocated after the first unit.
        UCString one(1, c);
        OzmGlob::WStringToString(one, m_narrow, csetDefault);
        std::fputs(m_narrow.c_str(), m_file);
    }
    if (m_ucFile.IsOpen() && m_ucFile.Putc(c) != 0)
        NoteUCFileError();
    if (m_lwio.IsConnected())
        m_lwio.PutC(c);
    if (m_string)
        m_string->push_back(c);
    if (m_utfString) {
        char bytes[3];
        m_utfString->append(bytes, EncodeRun(&c, 1, false, bytes));
    }
    return *this;
}

void XmlOutputStream::Format(const UCChar* format, ...) {
    if (!format)
        return;
    va_list args;
    va_start(args, format);
    // Bounded: a longer expansion is cut at the end of the buffer.
    vwsnfmt(m_formatBuffer, static_cast<int>(sizeof m_formatBuffer / sizeof m_formatBuffer[0]), format, args);
    va_end(args);
    *this << m_formatBuffer;
}
