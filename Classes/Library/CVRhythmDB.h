#pragma once

#include <QByteArray>
#include <QByteArrayView>
#include <QString>

#include <optional>
#include <string_view>

// Rhythmbox's library file, rhythmdb.xml: `<rhythmdb version="2.0">` holding one `<entry
// type="...">` per song, radio station, podcast feed or post, ignored or unreadable file, each a
// flat list of `<name>text</name>` elements. The location (a file URI) is an entry's only
// identity. This scans the file in place, without a tree: the reader, the rewriter and the
// player link each walk it once.
namespace CVRhythmDB {

// The versions whose entries Corvana knows how to read and rewrite.
bool isKnownVersion(std::string_view version);

// The URI Rhythmbox stores for a path ("file:///..." escaped as GLib escapes a path): the
// form that names the same entry again.
QByteArray fileURIFromPath(const QString &path);
// The path of a file URI; nothing when it is not one file's path.
std::optional<QString> pathFromURI(QByteArrayView uri);
// The mountpoint Rhythmbox keeps beside a location: the drive root's URI when the file lies
// under a drive root, none on the start-up drive.
std::optional<QByteArray> mountPointForPath(const QString &path);

// The text of an element with the five entities and character references decoded.
QByteArray decodeText(QByteArrayView raw);
// The reverse, as Rhythmbox's XML writer escapes text.
QByteArray encodeText(QByteArrayView text);

// One `<name>raw text</name>` (or `<name/>`) of an entry: views into the document.
struct Field {
    std::string_view name;
    std::string_view raw; // undecoded
    qint64 start = 0; // the element, from '<' to the end of its closing tag
    qint64 end = 0;
    qint64 lineStart = 0; // where the element's line begins (its indentation)
};

class Scanner {
public:
    explicit Scanner(QByteArrayView document);

    // The XML declaration and `<rhythmdb version="...">`; `root` is the top element's name.
    bool readHeader(std::string_view root = "rhythmdb");
    std::string_view version() const { return m_version; }

    // The next `<entry>` (or, in playlists.xml, `<playlist>`): its attributes, then its fields.
    // False at the end of the top element, or on an error.
    bool nextElement(std::string_view name);
    std::string_view attribute(std::string_view name) const;
    qint64 elementStart() const { return m_elementStart; }
    // The next field of the current element; false at its end tag.
    bool nextField(Field &field);
    qint64 elementEnd() const { return m_elementEnd; }

    bool hasError() const { return !m_error.isEmpty(); }
    // "line L, column C: what was wrong"
    QString errorString() const { return m_error; }
    bool atEnd() const { return m_atEnd; }

private:
    bool fail(const char *what);
    void skipSpace();
    bool skipMisc(); // comments and processing instructions between elements
    bool readTagName(std::string_view &name);
    bool readAttributes(bool &selfClosing);

    QByteArrayView m_doc;
    qint64 m_pos = 0;
    std::string_view m_version;
    std::string_view m_root;
    std::string_view m_attributes; // of the current element
    bool m_selfClosing = false;
    qint64 m_elementStart = 0;
    qint64 m_elementEnd = 0;
    bool m_atEnd = false;
    QString m_error;
};

} // namespace CVRhythmDB
