// ozmutil.h - the platform layer the library stands on: character and error
// types, Unicode character classes, encoding names, paths, buffered files with
// character-set handling, pluggable I/O modules and wide formatted printing.
#pragma once

#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "ozmdefs.h"

typedef char16_t UCChar;
typedef std::u16string UCString;

// The end-of-input character of every character stream.
constexpr UCChar UCEof = 0xFFFF;

// The shared error enumeration. The underlying type is fixed so that values
// passed through from I/O modules beyond those named here stay well defined.
enum BATCHERR : int {
    errNone = 0,
    errSyntax = 4,
    errOpenSource = 12,
    errOpenUri = 19,
    errDeclInProlog = 20,
    errNotReady = 62
};

// Character sets. 0 is the platform's narrow set, which is UTF-8 here. Every
// named set can be decoded: UTF-8, UTF-16, US-ASCII and ISO-8859-1 by the
// library itself, the others through the C library's iconv.
enum OZM_CSET : int {
    csetUnknown = -1,
    csetDefault = 0,
    csetUTF8 = 1,
    csetUTF16 = 2,
    csetUTF16LE = 3,
    csetUTF16BE = 4,
    csetASCII = 5,
    csetISO8859_1 = 11,  // csetISO8859_1 + n - 1 is ISO-8859-n, n = 1..16 (no 12)
    csetISO8859_15 = 25,
    csetISO8859_16 = 26,
    csetWindows1250 = 30,  // csetWindows1250 + n is windows-125n, n = 0..8
    csetWindows1258 = 38,
    csetKOI8R = 40,
    csetKOI8U = 41,
    csetIBM866 = 42,
    csetIBM855 = 43,
    csetIBM437 = 44,
    csetIBM850 = 45,
    csetIBM852 = 46,
    csetIBM857 = 47,
    csetIBM862 = 48,
    csetMacintosh = 49,
    csetWindows874 = 50,
    csetTIS620 = 51,
    csetShiftJIS = 60,
    csetWindows31J = 61,
    csetEUCJP = 62,
    csetISO2022JP = 63,
    csetISO2022JP2 = 64,
    csetGB2312 = 70,
    csetGBK = 71,
    csetGB18030 = 72,
    csetBig5 = 73,
    csetBig5HKSCS = 74,
    csetEUCKR = 80,
    csetISO2022KR = 81
};

// Longest path, in UCChar with the terminator, that the fixed path buffers
// of sepfile, appndnam and appndext hold.
constexpr int OZM_MAX_PATH = 4096;

class OZM_API OzmGlob {
public:
    // XML white space: 0x20, 0x09, 0x0A, 0x0D.
    static bool IsUCSpace(UCChar c) { return c == 0x20 || c == 0x09 || c == 0x0A || c == 0x0D; }

    // Attribute word of a character from its Unicode general category.
    // Name starters (Lu Ll Lt Lo Nl) carry a bit of 0x2E04, further name
    // characters (Mn Mc Me Lm Nd) a bit of 0x1007 and none of 0x2E04.
    static unsigned short GetUCAttrs(UCChar c) { return s_ucAttrValues[s_ucAttrIndex[c >> 8]][c & 0xFF]; }

    enum : unsigned short {
        ucNameStartMask = 0x2E04,
        ucNameCharMask = 0x1007,
        ucUpper = 0x0200,    // Lu
        ucLower = 0x0400,    // Ll
        ucTitle = 0x0800,    // Lt
        ucOtherLetter = 0x2000,  // Lo
        ucLetterNumber = 0x0004, // Nl
        ucMark = 0x0001,     // Mn Mc Me
        ucDigit = 0x0002,    // Nd
        ucModifier = 0x1000, // Lm
        ucSpace = 0x0008,    // Zs Zl Zp
        ucPunct = 0x0010,    // P*
        ucSymbol = 0x0020,   // S*
        ucControl = 0x0040,  // Cc
        ucFormat = 0x0080,   // Cf
        ucSurrogate = 0x0100, // Cs
        ucPrivate = 0x4000,  // Co
        ucOtherNumber = 0x8000 // No
    };

    // Case-insensitive comparison (ASCII and Latin-1 letters fold); 0 when
    // equal, otherwise the sign of the first difference.
    static int wcscmpi(const UCChar* a, const UCChar* b);

    // Character set of an encoding name (a name or alias of the IANA
    // registry, or UTF8, UTF16, LATIN1, CP1250..CP1258), in any letter case;
    // -1 when unknown or when this system's iconv cannot decode the set.
    static OZM_CSET EncodingByName(const UCChar* name);
    // Preferred IANA name of a character set; "" for an unknown value. Never
    // null.
    static const UCChar* EncodingToName(OZM_CSET set);
    // ISO form of a character set (the default set maps to UTF-8).
    static OZM_CSET ISOEncoding(OZM_CSET set);

    // Writes the UTF-8 form of one unit and a terminating zero byte to out
    // (room for 4 bytes); returns the number of bytes before the terminator.
    // A surrogate unit is encoded on its own, as three bytes.
    static int UnicodeToUTF8(UCChar c, unsigned char* out);
    // Replaces out with in, converted to the character set (0 and 1: UTF-8,
    // pairs joined; Latin-1 and ASCII: '?' for what does not fit).
    static bool WStringToString(const UCString& in, std::string& out, OZM_CSET set);
    // Replaces out with the UTF-16 form of UTF-8 bytes. A byte that neither
    // begins nor continues a valid sequence becomes the unit of its Latin-1
    // value; a byte-order mark at the start is dropped; characters beyond
    // U+FFFF become two units.
    static void DecodeUTF8(const unsigned char* data, size_t length, UCString& out);

    // Splits path in place into directory (kept in path, with its trailing
    // '/', empty for a bare file name), file name and extension (with its
    // dot). appndnam and appndext put the three together again. All buffers
    // hold OZM_MAX_PATH units; longer results are cut. Returns 0.
    static int sepfile(UCChar* path, UCChar* name, UCChar* ext);
    static void appndnam(UCChar* path, const UCChar* name);
    static void appndext(UCChar* path, const UCChar* ext);

private:
    static const unsigned char s_ucAttrIndex[256];
    static const unsigned short s_ucAttrValues[][256];
};

// Formatted printing into UCChar buffers. Directives: %s and %S (a
// const UCChar* text, null prints "(null)"), %c (a unit passed as int),
// %d %i %u %x %X (int; with l or ll for long and long long), %f (double,
// always with '.' whatever the locale), %%; flags '-' and '0', field widths
// and precisions, '*' for either. Each returns the number of units written,
// the terminator not counted.
OZM_API int wsfmt(UCChar* buffer, const UCChar* format, ...);
OZM_API int vwsfmt(UCChar* buffer, const UCChar* format, va_list args);
// Writes at most limit units, the terminator included; output that does not
// fit is cut. A limit below 1 writes nothing.
OZM_API int vwsnfmt(UCChar* buffer, int limit, const UCChar* format, va_list args);

// Turns the bytes of a text into UCChar units, a block at a time, from
// wherever the bytes are: OzmUCFile hands it the blocks of its buffer, and a
// range in memory can be handed over the same way. Begin decides how the text
// is decoded from its first bytes; Decode then converts block after block.
//
// The form of a text is one of OzmUCFile's formats. In the 8-bit formats (1
// and 8) a UTF-8 byte-order mark selects UTF-8; without one, the encoding
// named in an XML or text declaration at the start (<?xml ... encoding="..."
// ... ?>, read as ASCII) is used when it is a set other than UTF-8 and the
// UTF-16 forms, and UTF-8 otherwise. UTF-8 reads invalid bytes as their
// Latin-1 value; every other 8-bit set reports them (decInvalid). The 16-bit
// formats read UTF-16 as OzmUCFile tells.
class OZM_API OzmTextDecoder {
public:
    enum Status {
        decDone,      // all bytes used (and, with final, nothing held back)
        decFull,      // the units filled the room: call again with the rest
        decNeedMore,  // the bytes left begin a character that goes on in the
                      // next block: hand them in again in front of it
        decInvalid    // the bytes at consumed are not text in the set
    };
    // The most bytes that decNeedMore leaves.
    static constexpr size_t kMaxPartial = 4;

    OzmTextDecoder() = default;
    // A copy decodes on from where the original stands, except in a set
    // whose decoder keeps a state of its own between blocks (ISO-2022-JP,
    // ISO-2022-JP-2, ISO-2022-KR, windows-1255, windows-1258): a copy made
    // after the first block of such a text reports its next block invalid.
    OzmTextDecoder(const OzmTextDecoder& other);
    OzmTextDecoder& operator=(const OzmTextDecoder& other);
    ~OzmTextDecoder();

    // Starts a new text of format (an OzmUCFile format).
    void Reset(int format);
    // Looks at the first n bytes of the text: decNeedMore when they do not
    // yet decide (only without final: more bytes can follow), otherwise
    // decDone with skip set to the length of a byte-order mark to pass over.
    // Decode may be called only after that.
    Status Begin(const unsigned char* data, size_t n, bool final, size_t& skip);
    bool Begun() const { return m_kind != 0; }
    // Decodes the bytes [data, data + n) into out, which has room for
    // capacity units; final says that no bytes follow. consumed receives the
    // bytes used, units the units written.
    Status Decode(const unsigned char* data, size_t n, UCChar* out, size_t capacity, bool final, size_t& consumed,
                  size_t& units);
    // The set the text is decoded from: csetUTF8, csetUTF16LE, csetUTF16BE
    // or the declared one.
    OZM_CSET Encoding() const { return m_set; }
    // Whether Begin was given a declaration that the bytes it had (a whole
    // file buffer, 64 KB) did not hold to its end: it is then read as UTF-8.
    bool DeclarationCut() const { return m_cut; }

private:
    void Select(OZM_CSET set);
    void CloseIconv();
    int m_format = 1;
    int m_kind = 0;  // 0 not begun; see ozmdecode.cpp
    OZM_CSET m_set = csetUTF8;
    void* m_iconv = nullptr;  // iconv_t of the iconv kind
    const void* m_table = nullptr;  // units of the bytes, of the table kind
    bool m_stateful = false;  // the iconv decoder holds state between blocks
    bool m_used = false;      // a block has gone through the iconv decoder
    bool m_lost = false;      // a copy that cannot know the state
    bool m_cut = false;
};

// Byte file with its own buffer: one system call per buffer, never per
// character. A copy gets a duplicate of the descriptor, so each object
// closes its own and nothing is closed twice.
class OZM_API OzmBFile {
public:
    OzmBFile();
    OzmBFile(const OzmBFile& other);
    OzmBFile& operator=(const OzmBFile& other);
    virtual ~OzmBFile();

    // mode as for fopen: "r", "w", "a", optionally with "b" and "+".
    // Returns 0, or -1 when the file cannot be opened.
    int OpenBytes(const char* path, const char* mode);
    // Takes over an open descriptor; it is closed by Close only if owned.
    int AttachDescriptor(int fd, bool writable, bool owned);
    // Reads the n bytes at data, which must stay as they are until Close,
    // as a read-only file of that content: the reads hand out windows of
    // the bytes where they stand, of the sizes a regular file's reads have.
    int AttachMemory(const void* data, size_t n);
    int Close();
    bool IsOpen() const { return m_handle != -1 || m_memory; }
    int Handle() const { return m_handle; }

    // Next byte, or -1 at the end of the file or on a read error.
    int GetByte() { return m_readPos < m_readEnd ? *m_readPos++ : FillAndGet(); }
    // Reads up to n bytes; returns the count, 0 at the end.
    size_t ReadBytes(unsigned char* out, size_t n);
    int PutBytes(const void* data, size_t n);
    int Flush();
    // origin 0, 1, 2 as SEEK_SET, SEEK_CUR, SEEK_END; returns 0 or -1.
    int SeekBytes(int64_t offset, int origin);

protected:
    int m_handle = -1;

private:
    // OzmUCFile decodes straight out of the byte buffer and encodes into it.
    friend class OzmUCFile;
    static constexpr size_t kBufferSize = 65536;
    // Room in front of the data for the bytes of a character that was cut
    // off at the end of the previous block.
    static constexpr size_t kHeadroom = OzmTextDecoder::kMaxPartial;

    int FillAndGet();
    long FillBuffer();
    // Reads more behind the unread bytes, which move to the front of the
    // buffer first; 0 when the buffer is full, else as FillBuffer.
    long FillMore();
    void ResetBuffers();
    // Closes; the byte buffer is freed unless keepBuffer.
    int CloseSource(bool keepBuffer);
    // The byte buffer, allocated once and then re-used; false without memory.
    bool HaveBuffer();
    void DropReadAhead();
    void CopyFrom(const OzmBFile& other);
    int WriteOut(const unsigned char* data, size_t n);
    bool m_owned = false;
    bool m_writable = false;
    unsigned char* m_buffer = nullptr;  // kHeadroom + kBufferSize bytes while open
    const unsigned char* m_readPos = nullptr;
    const unsigned char* m_readEnd = nullptr;
    size_t m_writeUsed = 0;
    // A memory source: its bytes, and the first that no window has held yet.
    bool m_memory = false;
    const unsigned char* m_memBegin = nullptr;
    const unsigned char* m_memNext = nullptr;
    const unsigned char* m_memEnd = nullptr;
};

// Text file of UCChar units. Formats: 1 and 8 8-bit text, read in the
// encoding that an XML or text declaration at its start names (see
// OzmTextDecoder), UTF-8 otherwise (a leading byte-order mark is skipped;
// invalid bytes read as their Latin-1 value), written as UTF-8; 4 UTF-16 in
// the order of its byte-order mark (little-endian without one; written
// little-endian with a mark); 0x6004 and 0xA004 little- and big-endian
// UTF-16 without a mark. Getc is inline over a buffer of decoded units.
class OZM_API OzmUCFile : public OzmBFile {
public:
    OzmUCFile();
    OzmUCFile(const OzmUCFile& other);
    OzmUCFile& operator=(const OzmUCFile& other);
    ~OzmUCFile() override;

    // Returns 0, or a negative value when the file cannot be opened or the
    // format is not one of the above. set is the character set of path
    // (0: the platform's own).
    int Open(const UCChar* path, const UCChar* mode, int format, OZM_CSET set);
    // Reads an open descriptor from where it stands, in one of the formats
    // above; Close closes it only if owned. Returns 0, or a negative value
    // for an unknown format or a descriptor that is not open.
    int OpenDescriptor(int fd, int format, bool owned);
    // Reads the n bytes at data (AttachMemory) in one of the formats above,
    // through the same decoding as a file of those bytes. The buffer of
    // decoded units of an earlier use is kept. Returns 0, or a negative
    // value for an unknown format.
    int OpenMemory(const void* data, size_t n, int format);
    int Close();
    // Closes as Close does but keeps the buffers, for the next Open,
    // OpenDescriptor or OpenMemory to re-use; the destructor frees them.
    int CloseKeepingBuffers();

    // Next unit, or UCEof at the end of the file, on a read error and at
    // bytes that are invalid in the text's encoding (DecodeFailed); throws
    // std::bad_alloc when the buffer of decoded units cannot be had.
    UCChar Getc() { return m_ucPos < m_ucEnd ? *m_ucPos++ : Refill(); }
    // Whether the input ended at invalid bytes: Getc has handed out every
    // unit in front of them and then UCEof.
    bool DecodeFailed() const { return m_decodeFailed; }
    // The set the text is read in (OzmTextDecoder::Encoding), once the
    // first unit has been asked for.
    OZM_CSET Encoding() const { return m_decoder.Encoding(); }
    bool DeclarationCut() const { return m_decoder.DeclarationCut(); }
    int Putc(UCChar c);
    int PutString(const UCChar* text, long length = -1);
    // Only (0, 0) is needed: back to the start, the decoded buffer dropped.
    int Seek(int64_t offset, int origin);

    int Format() const { return m_format; }
    void Format(int format) { m_format = format; }

    // Decoded units that Getc has not yet returned; a reader may consume
    // them in bulk and then call Skip with their count.
    const UCChar* Pending() const { return m_ucPos; }
    const UCChar* PendingEnd() const { return m_ucEnd; }
    void Skip(size_t count) { m_ucPos += count; }
    // Units handed out since the file was opened or last sought.
    uint64_t UnitsRead() const { return m_unitsDecoded - uint64_t(m_ucEnd - m_ucPos); }
    // Gives back the last count units Getc returned when they all came from
    // the decoded block at hand, so that they are read again without a seek;
    // false, and nothing given back, otherwise.
    bool Unread(size_t count) {
        if (!m_ucBuffer || m_ucPos < m_ucBuffer || size_t(m_ucPos - m_ucBuffer) < count)
            return false;
        m_ucPos -= count;
        return true;
    }

private:
    static constexpr size_t kUnits = 32768;  // decoded units per refill

    UCChar Refill();
    bool BeginDecoding();
    UCChar Deliver(size_t units);
    UCChar EndOfInput();
    void ResetDecoding();
    void CopyState(const OzmUCFile& other);
    int PutUnits(const UCChar* text, size_t count);
    int m_format = 0;
    uint64_t m_unitsDecoded = 0;  // units of all blocks decoded since the start
    UCChar m_pendingHigh = 0;  // UTF-8 output: high surrogate awaiting its partner
    UCChar* m_ucBuffer = nullptr;  // kUnits units, allocated by the first read
    const UCChar* m_ucPos = nullptr;
    const UCChar* m_ucEnd = nullptr;
    OzmTextDecoder m_decoder;
    bool m_atStart = true;  // the first byte read is the first of the file
    bool m_ended = false;   // end of input, read error or invalid bytes seen
    bool m_eof = false;     // the descriptor has reported its end
    bool m_invalidAhead = false;  // the units at hand stop at invalid bytes
    bool m_decodeFailed = false;
    unsigned char m_carry[OzmTextDecoder::kMaxPartial] = {0, 0, 0, 0};
    int m_carryCount = 0;
};

// A string class, used as the out-arguments of ParseDLLName.
class OZM_API OzmWString {
public:
    OzmWString() = default;
    explicit OzmWString(const UCString& s) : m_text(s) {}
    virtual ~OzmWString() = default;
    const UCChar* Text() const { return m_text.c_str(); }
    operator const UCChar*() const { return m_text.c_str(); }
    const UCString& Str() const { return m_text; }
    void Assign(const UCString& s) { m_text = s; }

private:
    UCString m_text;
};

// A consumer's notifier, asked while an I/O module has no character ready.
class OZM_API OzmNotifier {
public:
    virtual ~OzmNotifier() = default;
    // Not called by the library.
    virtual int Notify(int code, int value);
    virtual void BeginRead(int phase);
    // 0: go on waiting; anything else: give up, the input ends.
    virtual int PollRead(int phase, int step);
    virtual void EndRead(int phase);
};

// What an I/O module implements. Modules come built in ("file", "fd"), from
// an in-process registration, or from a shared object that exports
// extern "C" OzmIOModule* OzmCreateIOModule().
class OZM_API OzmIOModule {
public:
    virtual ~OzmIOModule() = default;
    // mode: bit 0x8000 read; otherwise write, bit 0x2000 appending.
    virtual BATCHERR Open(const UCChar* resource, const UCChar* options, short mode) = 0;
    virtual BATCHERR Close() = 0;
    // Up to capacity units into buffer; errNone with count > 0, errNotReady
    // when nothing is there yet, any other value at the end or on failure.
    // errSyntax says that the input is malformed (bytes that are not text in
    // its encoding): a parse then fails with LastErrorMessage.
    virtual BATCHERR Read(UCChar* buffer, size_t capacity, size_t& count) = 0;
    virtual BATCHERR Write(const UCChar* text, size_t count) = 0;
    virtual void SetDesignMode(bool on) { (void)on; }
    // Text of the last failure; never null.
    virtual const UCChar* LastErrorMessage() const = 0;
};

typedef OzmIOModule* (*OzmIOModuleFactory)();

// A pluggable I/O module. Copies share one connection: closing any of them
// closes it once for all.
class OZM_API OzmLightweightIO {
public:
    OzmLightweightIO();
    OzmLightweightIO(const OzmLightweightIO& other);
    OzmLightweightIO& operator=(const OzmLightweightIO& other);
    ~OzmLightweightIO();

    // "MODULE:RESOURCE" optionally followed by "?OPTIONS"; false when there
    // is no ':' or MODULE is empty.
    static bool ParseDLLName(const UCChar* spec, OzmWString& module, OzmWString& resource, OzmWString& options);
    // A name containing '/' is loaded as a shared object; other names are
    // looked up among the registered and built-in modules.
    static bool RegisterModule(const UCChar* name, OzmIOModuleFactory factory);
    static bool UnregisterModule(const UCChar* name);

    BATCHERR SetModule(const UCChar* module);
    BATCHERR Open(const UCChar* resource, const UCChar* options, short mode, bool flag);
    BATCHERR Close();
    BATCHERR GetC(UCChar& c);
    BATCHERR PutC(UCChar c);
    BATCHERR Flush();
    const UCChar* LastErrorMessage();
    void SetDesignMode(bool on);
    bool IsConnected() const;
    // errNone while the input goes on; then what the module answered at its
    // end or failure (GetC gives that answer from then on).
    BATCHERR InputState() const;

private:
    struct Connection;
    // Drops one reference; the last one closes, frees the module and
    // unloads its shared object.
    static void Release(Connection* conn);
    BATCHERR Fail(BATCHERR code, const UCString& message);
    BATCHERR FlushOutput();
    Connection* m_conn = nullptr;
};
