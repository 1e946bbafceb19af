// xmloutput.h - the output stream that every writer sends its text to, and the
// escaping routine the writers share.
#pragma once

#include <cstddef>
#include <cstdio>
#include <string>
#include <vector>

#include "ozmutil.h"
#include "xmltree.h"


// A sink with up to five independent targets: a stdio FILE, an OzmUCFile, an
// I/O module, a UCString and an 8-bit string that receives UTF-8. Every
// delivery goes to each active target in that order. The stream has no
// buffer of its own, and a failing target does not stop the targets behind
// it. Only the OzmUCFile target's failures are kept (see CloseUCFile); the
// others are ignored.
//
// The stdio file receives UTF-8 (the platform's narrow character set), each
// unit converted by itself, on the text and on the single-character path
// alike. The UTF-8 string gets the same bytes. The OzmUCFile encodes by its
// own format; the module and the UCString receive the 16-bit units.
class OZM_API XmlOutputStream {
public:
    // All targets off.
    XmlOutputStream();
    // A copy delivers to the same targets. A stdio file that the original owns
    // is duplicated (a new FILE on a dup() of its descriptor, after the
    // original has been flushed), so that each stream owns and closes its own
    // and nothing is closed twice; a file without a descriptor, or one that
    // cannot be duplicated, is shared without being owned by the copy. The
    // OzmUCFile is copied by its own copy operations (its descriptor is
    // duplicated too), and all copies share one I/O module connection, which
    // the first Close closes for all. Assignment closes nothing of what it
    // overwrites: an owned stdio file, an open OzmUCFile and a module
    // connection are kept until this stream's Close or destruction.
    XmlOutputStream(const XmlOutputStream& other);
    XmlOutputStream& operator=(const XmlOutputStream& other);
    // Close, then the members go.
    ~XmlOutputStream();

    // The string targets belong to the caller: they are appended to, never
    // cleared or freed, and must outlive the stream or be taken away with a
    // null pointer.
    void SetString(UCString* target) { m_string = target; }
    void SetUTFString(std::string* target) { m_utfString = target; }
    // Lets go of the present file (closing it when owned), then takes file;
    // null turns the target off. Handing in the present file again only
    // changes the ownership flag.
    void SetFilePointer(FILE* file, bool owns);
    // Opens the OzmUCFile target; format is a text format of OzmUCFile. A
    // negative result is failure.
    int OpenUCFile(const UCChar* name, const UCChar* mode, int format);
    // Opens the OzmUCFile target on fd, an open descriptor that stays the
    // caller's: closing the target writes out what it holds and leaves the
    // descriptor open. format as for OpenUCFile; no byte-order mark is
    // written. A negative result is failure (a bad descriptor or format).
    int AttachUCFile(int fd, int format);
    // Closes the OzmUCFile target alone, writing out what it holds. Returns
    // 0 when every write to it since it was opened succeeded; otherwise -1
    // with errno set to the cause of the first failure (later writes are
    // still attempted). Close forgets a failure without reporting it.
    int CloseUCFile();
    BATCHERR SetLWIOModule(const UCChar* module);
    BATCHERR OpenLWIO(const UCChar* resource, const UCChar* options, short mode);
    const UCChar* LastLWIOMessage();
    // Closes an owned stdio file and forgets the file in any case, then closes
    // the OzmUCFile and the I/O module. The string targets stay active.
    void Close();

    // Delivers a text up to its terminator.
    XmlOutputStream& operator<<(const UCChar* text);
    // Delivers one unit.
    XmlOutputStream& operator<<(UCChar c);
    // Delivers the string's text up to its first zero unit.
    XmlOutputStream& operator<<(const UCString& text) { return *this << text.c_str(); }
    // Delivers count units (zero units included), each target receiving
    // exactly what count single-unit deliveries would give it (one PutC per
    // unit to the I/O module), but a whole run per target at a time.
    XmlOutputStream& Write(const UCChar* units, size_t count);
    // Formats into a buffer of 256 units and delivers the result. An
    // expansion that does not fit is cut to 255 units.
    void Format(const UCChar* format, ...);

private:
    void DeliverText(const UCChar* text, size_t count, bool asText);
    void NoteUCFileError();

    FILE* m_file;
    OzmUCFile m_ucFile;
    OzmLightweightIO m_lwio;
    UCString* m_string;
    std::string* m_utfString;
    bool m_ownsFile;
    int m_ucFileError;  // errno of the first failed write to the OzmUCFile, 0 if none
    UCChar m_formatBuffer[256];
    std::string m_narrow;  // scratch of the conversions for the stdio file
    // What an assignment overwrote: assignment closes nothing, so an owned
    // stdio file, an open OzmUCFile (a copy holding its own descriptor) and a
    // module connection (a copy sharing it) wait here until Close.
    std::vector<FILE*> m_retiredFiles;
    std::vector<OzmUCFile> m_retiredUCFiles;
    std::vector<OzmLightweightIO> m_retiredModules;
};

// Sends text with '"', '&', '\'', '<' and '>' replaced by "&quot;", "&amp;",
// "&apos;", "&lt;" and "&gt;"; every other unit goes out unchanged.
OZM_API void WriteEscaped(XmlOutputStream& out, const UCChar* text);
