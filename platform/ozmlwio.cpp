// ozmlwio.cpp - pluggable I/O modules (OzmLightweightIO): the module registry,
// loading of shared-object modules, the built-in "file" and "fd" modules and
// the buffered, reference-counted connection. Also the default notifier.
#include "ozmutil.h"

#include <atomic>
#include <cerrno>
#include <climits>
#include <cstring>
#include <map>
#include <mutex>

#include <dlfcn.h>
#include <fcntl.h>

// ---------------------------------------------------------------------------
// OzmNotifier defaults: never asked to stop waiting.

int OzmNotifier::Notify(int code, int value) {
    (void)code;
    (void)value;
    return 0;
}

void OzmNotifier::BeginRead(int phase) { (void)phase; }

int OzmNotifier::PollRead(int phase, int step) {
    (void)phase;
    (void)step;
    return 0;
}

void OzmNotifier::EndRead(int phase) { (void)phase; }

namespace {

// What the built-in modules answer once their input is exhausted.
constexpr BATCHERR kEndOfInput = static_cast<BATCHERR>(-1);

// Units exchanged with a module per Read or Write call.
constexpr size_t kIOUnits = 4096;

UCString FromNarrow(const char* text) {
    UCString out;
    if (text)
        OzmGlob::DecodeUTF8(reinterpret_cast<const unsigned char*>(text), std::strlen(text), out);
    return out;
}

UCString Quoted(const UCChar* text) { return u"'" + UCString(text ? text : u"") + u"'"; }

UCString SystemError(int err) { return FromNarrow(std::strerror(err)); }

// ---------------------------------------------------------------------------
// Built-in modules. Both read through OzmUCFile, so their input decodes
// exactly as a text file does, in the encoding its declaration names; bytes
// that are no text in it end the input with errSyntax.

class UCFileModule : public OzmIOModule {
public:
    BATCHERR Read(UCChar* buffer, size_t capacity, size_t& count) override {
        count = 0;
        if (!m_file.IsOpen())
            return SetError(errOpenSource, u"The resource is not open");
        while (count < capacity && m_peekPos < m_peekCount)
            buffer[count++] = m_peek[m_peekPos++];
        while (count < capacity) {
            size_t pending = static_cast<size_t>(m_file.PendingEnd() - m_file.Pending());
            if (pending) {
                size_t take = pending < capacity - count ? pending : capacity - count;
                std::memcpy(buffer + count, m_file.Pending(), take * sizeof(UCChar));
                m_file.Skip(take);
                count += take;
                continue;
            }
            if (count)
                break;
            // Nothing decoded: Getc reads and decodes the next block.
            UCChar c = m_file.Getc();
            if (c == UCEof && m_file.DecodeFailed())
                return SetError(errSyntax, u"Invalid byte sequence for encoding '" +
                                               UCString(OzmGlob::EncodingToName(m_file.Encoding())) + u"'");
            if (c == UCEof)
                return kEndOfInput;
            buffer[count++] = c;
        }
        return errNone;
    }

    BATCHERR Write(const UCChar* text, size_t count) override {
        if (!m_file.IsOpen())
            return SetError(errOpenSource, u"The resource is not open");
        // Flushed at once: the connection already gathers units into blocks.
        if (m_file.PutString(text, static_cast<long>(count)) != 0 || m_file.Flush() != 0)
            return SetError(errOpenSource, u"Cannot write to " + Quoted(m_name.c_str()) + u": " + SystemError(errno));
        return errNone;
    }

    BATCHERR Close() override {
        if (!m_file.IsOpen())
            return errNone;
        if (m_file.Close() != 0)
            return SetError(errOpenSource, u"Cannot close " + Quoted(m_name.c_str()) + u": " + SystemError(errno));
        return errNone;
    }

    const UCChar* LastErrorMessage() const override { return m_error.c_str(); }

protected:
    BATCHERR SetError(BATCHERR code, const UCString& message) {
        m_error = message;
        return code;
    }

    void Reset(const UCChar* resource) {
        m_file.Close();
        m_error.clear();
        m_name = resource ? resource : u"";
        m_peekPos = m_peekCount = 0;
    }

    OzmUCFile m_file;
    UCString m_name;
    UCString m_error;
    // Units read while looking for a byte-order mark, handed on first.
    UCChar m_peek[2] = {0, 0};
    size_t m_peekCount = 0;
    size_t m_peekPos = 0;
};

// "file:PATH": reads UTF-8, the encoding its declaration names, or UTF-16
// when the file starts with a byte-order mark; writes UTF-8, appending with
// mode bit 0x2000.
class FileModule : public UCFileModule {
public:
    BATCHERR Open(const UCChar* resource, const UCChar* options, short mode) override {
        (void)options;
        Reset(resource);
        if (m_name.empty())
            return SetError(errOpenSource, u"No file name given");
        const bool reading = (mode & 0x8000) != 0;
        const UCChar* fileMode = reading ? u"r" : (mode & 0x2000) ? u"a" : u"w";
        if (m_file.Open(m_name.c_str(), fileMode, 1, csetUTF8) != 0)
            return SetError(errOpenSource, u"Cannot open file " + Quoted(m_name.c_str()) + u": " + SystemError(errno));
        if (!reading)
            return errNone;
        // Read as UTF-8 first: the bytes of a UTF-16 mark, not being UTF-8,
        // come through as the units 0xFF 0xFE (or 0xFE 0xFF).
        UCChar first = m_file.Getc();
        UCChar second = first == UCEof ? UCEof : m_file.Getc();
        if ((first == 0xFF && second == 0xFE) || (first == 0xFE && second == 0xFF)) {
            m_file.Format(4);
            if (m_file.Seek(0, 0) != 0) {
                int err = errno;
                m_file.Close();
                return SetError(errOpenSource, u"Cannot rewind file " + Quoted(m_name.c_str()) + u": " + SystemError(err));
            }
            return errNone;
        }
        if (first != UCEof)
            m_peek[m_peekCount++] = first;
        if (second != UCEof)
            m_peek[m_peekCount++] = second;
        return errNone;
    }
};

// "fd:N": reads UTF-8 (or the encoding its declaration names) from, or
// writes UTF-8 to, an open descriptor, which stays open.
class FdModule : public UCFileModule {
public:
    BATCHERR Open(const UCChar* resource, const UCChar* options, short mode) override {
        (void)options;
        Reset(resource);
        long fd = 0;
        bool valid = !m_name.empty();
        for (UCChar c : m_name) {
            if (c < '0' || c > '9' || fd > (INT_MAX - 9) / 10) {
                valid = false;
                break;
            }
            fd = fd * 10 + (c - '0');
        }
        if (!valid)
            return SetError(errOpenSource, u"Not a descriptor number: " + Quoted(m_name.c_str()));
        const bool reading = (mode & 0x8000) != 0;
        int flags = ::fcntl(static_cast<int>(fd), F_GETFL);
        if (flags == -1)
            return SetError(errOpenSource, u"Descriptor " + m_name + u" is not open");
        int access = flags & O_ACCMODE;
        if (reading ? access == O_WRONLY : access == O_RDONLY)
            return SetError(errOpenSource,
                            u"Descriptor " + m_name + (reading ? u" is not open for reading" : u" is not open for writing"));
        if (m_file.AttachDescriptor(static_cast<int>(fd), !reading, false) != 0)
            return SetError(errOpenSource, u"Cannot use descriptor " + m_name + u": " + SystemError(errno));
        m_file.Format(1);
        return errNone;
    }
};

OzmIOModule* CreateFileModule() { return new FileModule; }
OzmIOModule* CreateFdModule() { return new FdModule; }

// ---------------------------------------------------------------------------
// Registry of in-process modules.

struct Registry {
    std::mutex lock;
    std::map<UCString, OzmIOModuleFactory> factories;
};

Registry& TheRegistry() {
    static Registry registry;
    return registry;
}

}  // namespace

// ---------------------------------------------------------------------------
// OzmLightweightIO

struct OzmLightweightIO::Connection {
    std::atomic<int> refs{1};
    OzmIOModule* module = nullptr;
    void* library = nullptr;  // dlopen handle of a shared-object module
    bool connected = false;
    bool reading = false;
    UCChar in[kIOUnits];
    size_t inPos = 0;
    size_t inEnd = 0;
    BATCHERR inState = errNone;  // sticky end or failure of the input
    UCChar out[kIOUnits];
    size_t outUsed = 0;
    UCString error;

    void ResetBuffers() {
        inPos = inEnd = 0;
        inState = errNone;
        outUsed = 0;
    }
};

bool OzmLightweightIO::ParseDLLName(const UCChar* name, OzmWString& module, OzmWString& resource,
                                    OzmWString& options) {
    module.Assign(UCString());
    resource.Assign(UCString());
    options.Assign(UCString());
    if (!name)
        return false;
    UCString text(name);
    size_t colon = text.find(u':');
    if (colon == UCString::npos || colon == 0)
        return false;
    module.Assign(text.substr(0, colon));
    size_t query = text.find(u'?', colon + 1);
    if (query == UCString::npos) {
        resource.Assign(text.substr(colon + 1));
    } else {
        resource.Assign(text.substr(colon + 1, query - colon - 1));
        options.Assign(text.substr(query + 1));
    }
    return true;
}

bool OzmLightweightIO::RegisterModule(const UCChar* name, OzmIOModuleFactory factory) {
    // Names with '/' are paths of shared objects and never looked up here.
    if (!name || !*name || !factory || UCString(name).find(u'/') != UCString::npos)
        return false;
    Registry& r = TheRegistry();
    std::lock_guard<std::mutex> guard(r.lock);
    r.factories[name] = factory;
    return true;
}

bool OzmLightweightIO::UnregisterModule(const UCChar* name) {
    if (!name)
        return false;
    Registry& r = TheRegistry();
    std::lock_guard<std::mutex> guard(r.lock);
    return r.factories.erase(name) > 0;
}

OzmLightweightIO::OzmLightweightIO() = default;

OzmLightweightIO::OzmLightweightIO(const OzmLightweightIO& other) : m_conn(other.m_conn) {
    if (m_conn)
        m_conn->refs.fetch_add(1, std::memory_order_relaxed);
}

OzmLightweightIO& OzmLightweightIO::operator=(const OzmLightweightIO& other) {
    if (m_conn != other.m_conn) {
        if (other.m_conn)
            other.m_conn->refs.fetch_add(1, std::memory_order_relaxed);
        Release(m_conn);
        m_conn = other.m_conn;
    }
    return *this;
}

OzmLightweightIO::~OzmLightweightIO() { Release(m_conn); }

void OzmLightweightIO::Release(Connection* conn) {
    if (!conn || conn->refs.fetch_sub(1, std::memory_order_acq_rel) != 1)
        return;
    if (conn->connected && conn->module) {
        if (!conn->reading && conn->outUsed)
            conn->module->Write(conn->out, conn->outUsed);
        conn->module->Close();
    }
    delete conn->module;
    if (conn->library)
        ::dlclose(conn->library);
    delete conn;
}

BATCHERR OzmLightweightIO::Fail(BATCHERR code, const UCString& message) {
    if (!m_conn)
        m_conn = new Connection;
    m_conn->error = message;
    return code;
}

// Selects the module of later Opens. This object leaves the connection it
// shared with its copies (they keep it) and starts a new one of its own.
BATCHERR OzmLightweightIO::SetModule(const UCChar* name) {
    Release(m_conn);
    m_conn = new Connection;
    if (!name || !*name)
        return Fail(errOpenSource, u"No I/O module named");
    UCString moduleName(name);

    if (moduleName.find(u'/') != UCString::npos) {
        std::string path;
        OzmGlob::WStringToString(moduleName, path, csetUTF8);
        ::dlerror();
        void* library = ::dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
        if (!library)
            return Fail(errOpenSource, u"Cannot load I/O module " + Quoted(name) + u": " + FromNarrow(::dlerror()));
        ::dlerror();
        void* symbol = ::dlsym(library, "OzmCreateIOModule");
        if (!symbol) {
            const char* why = ::dlerror();
            UCString message = u"I/O module " + Quoted(name) + u" does not export OzmCreateIOModule";
            if (why)
                message += u": " + FromNarrow(why);
            ::dlclose(library);
            return Fail(errOpenSource, message);
        }
        OzmIOModuleFactory factory = reinterpret_cast<OzmIOModuleFactory>(symbol);
        OzmIOModule* module = factory();
        if (!module) {
            ::dlclose(library);
            return Fail(errOpenSource, u"I/O module " + Quoted(name) + u" did not create a module");
        }
        m_conn->module = module;
        m_conn->library = library;
        return errNone;
    }

    OzmIOModuleFactory factory = nullptr;
    {
        Registry& r = TheRegistry();
        std::lock_guard<std::mutex> guard(r.lock);
        auto it = r.factories.find(moduleName);
        if (it != r.factories.end())
            factory = it->second;
    }
    if (!factory) {
        if (moduleName == u"file")
            factory = CreateFileModule;
        else if (moduleName == u"fd")
            factory = CreateFdModule;
        else
            return Fail(errOpenSource, u"Unknown I/O module " + Quoted(name));
    }
    m_conn->module = factory();
    if (!m_conn->module)
        return Fail(errOpenSource, u"I/O module " + Quoted(name) + u" did not create a module");
    return errNone;
}

// flag is accepted for compatibility and has no effect: a connection is
// always buffered.
BATCHERR OzmLightweightIO::Open(const UCChar* resource, const UCChar* options, short mode, bool flag) {
    (void)flag;
    if (!m_conn || !m_conn->module)
        return Fail(errOpenSource, u"No I/O module selected");
    if (m_conn->connected)
        Close();
    Connection& k = *m_conn;
    k.error.clear();
    k.ResetBuffers();
    BATCHERR rc = k.module->Open(resource ? resource : u"", options ? options : u"", mode);
    if (rc != errNone) {
        const UCChar* why = k.module->LastErrorMessage();
        return Fail(rc, why && *why ? UCString(why) : u"Cannot open " + Quoted(resource));
    }
    k.connected = true;
    k.reading = (mode & 0x8000) != 0;
    return errNone;
}

BATCHERR OzmLightweightIO::FlushOutput() {
    Connection& k = *m_conn;
    if (k.outUsed == 0)
        return errNone;
    size_t n = k.outUsed;
    k.outUsed = 0;
    BATCHERR rc = k.module->Write(k.out, n);
    if (rc != errNone) {
        const UCChar* why = k.module->LastErrorMessage();
        return Fail(rc, why && *why ? UCString(why) : UCString(u"Write failed"));
    }
    return errNone;
}

BATCHERR OzmLightweightIO::Close() {
    if (!m_conn || !m_conn->connected)
        return errNone;
    Connection& k = *m_conn;
    BATCHERR rc = k.reading ? errNone : FlushOutput();
    k.connected = false;
    BATCHERR closed = k.module->Close();
    k.ResetBuffers();
    if (closed != errNone && rc == errNone) {
        const UCChar* why = k.module->LastErrorMessage();
        rc = Fail(closed, why && *why ? UCString(why) : UCString(u"Close failed"));
    }
    return rc;
}

BATCHERR OzmLightweightIO::GetC(UCChar& c) {
    if (!m_conn || !m_conn->connected)
        return Fail(errOpenSource, u"Not connected");
    Connection& k = *m_conn;
    if (k.inPos < k.inEnd) {
        c = k.in[k.inPos++];
        return errNone;
    }
    if (k.inState != errNone)
        return k.inState;
    if (!k.reading)
        return Fail(errOpenSource, u"The connection is open for writing");
    size_t count = 0;
    BATCHERR rc = k.module->Read(k.in, kIOUnits, count);
    if (count > kIOUnits)
        count = kIOUnits;
    if (rc == errNotReady && count == 0)
        return errNotReady;
    if (rc != errNone && rc != errNotReady) {
        // The end, or a failure: remembered, and answered from now on.
        const UCChar* why = k.module->LastErrorMessage();
        if (why && *why)
            k.error = why;
        k.inState = rc;
    } else if (count == 0) {
        k.inState = kEndOfInput;  // success without units: nothing more will come
    }
    if (count == 0)
        return k.inState;
    k.inPos = 0;
    k.inEnd = count;
    c = k.in[k.inPos++];
    return errNone;
}

BATCHERR OzmLightweightIO::PutC(UCChar c) {
    if (!m_conn || !m_conn->connected)
        return Fail(errOpenSource, u"Not connected");
    Connection& k = *m_conn;
    if (k.reading)
        return Fail(errOpenSource, u"The connection is open for reading");
    k.out[k.outUsed++] = c;
    return k.outUsed == kIOUnits ? FlushOutput() : errNone;
}

BATCHERR OzmLightweightIO::Flush() {
    if (!m_conn || !m_conn->connected)
        return Fail(errOpenSource, u"Not connected");
    return m_conn->reading ? errNone : FlushOutput();
}

const UCChar* OzmLightweightIO::LastErrorMessage() { return m_conn ? m_conn->error.c_str() : u""; }

void OzmLightweightIO::SetDesignMode(bool on) {
    if (m_conn && m_conn->connected)
        m_conn->module->SetDesignMode(on);
}

bool OzmLightweightIO::IsConnected() const { return m_conn && m_conn->connected; }

BATCHERR OzmLightweightIO::InputState() const { return m_conn && m_conn->reading ? m_conn->inState : errNone; }
