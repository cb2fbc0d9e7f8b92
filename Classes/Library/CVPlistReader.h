#pragma once

#include <QByteArray>
#include <QByteArrayView>
#include <QString>

#include <string>
#include <string_view>
#include <vector>

class QIODevice;

// A pull reader of XML property lists. It never builds a tree: the caller walks the
// tokens and keeps only what it needs, so a 200 MB library costs one small buffer.
// Text views handed out stay valid until the next call of next().
class CVPlistReader {
public:
    enum class Token {
        None,
        DictBegin,
        DictEnd,
        ArrayBegin,
        ArrayEnd,
        Key,
        String,
        Integer,
        Real,
        Boolean,
        Date,
        Data,
        EndDocument,
        Error,
    };

    // The whole document is in memory; no copy is made.
    explicit CVPlistReader(QByteArrayView document);
    // The reader keeps a view: a temporary document would be gone before the first token.
    explicit CVPlistReader(QByteArray &&) = delete;
    // The document is read from the device in chunks as the reader advances.
    explicit CVPlistReader(QIODevice *device, qsizetype chunkSize = 1 << 20);

    Token next();
    Token token() const { return m_token; }

    // Key and String: the decoded UTF-8 text.
    std::string_view text() const { return m_text; }
    QString string() const { return QString::fromUtf8(m_text.data(), qsizetype(m_text.size())); }
    qint64 integer() const { return m_integer; }
    double real() const { return m_real; }
    bool boolean() const { return m_integer != 0; }
    // Date: seconds since 1970-01-01 00:00:00 UTC.
    qint64 date() const { return m_integer; }
    // Data: the decoded bytes.
    QByteArray data() const;

    // After DictBegin or ArrayBegin: reads up to and including the matching end.
    // After a scalar: does nothing. False when the document turned out malformed.
    bool skipValue();

    int depth() const { return int(m_stack.size()); }
    // Absolute byte range in the document of the current scalar's whole element (tags included),
    // or of the closing tag for DictEnd/ArrayEnd: lets a writer replace one value in place.
    qint64 elementStart() const { return m_elementStart; }
    qint64 elementEnd() const { return m_elementEnd; }
    bool hasError() const { return m_token == Token::Error; }
    QString errorString() const { return m_error; }
    qint64 errorLine() const { return m_errorLine; }
    qint64 errorColumn() const { return m_errorColumn; }
    // "line L, column C: message"
    QString errorDescription() const;

    // Where the reader stands between two values. A second reader started at the same byte in
    // the same nesting reads on exactly as this one would, so a document can be read in parts.
    enum class Frame : char { Plist, Dict, Array };
    struct Nesting {
        std::vector<Frame> frames;
        bool expectKey = false;
        bool rootSeen = false;
        bool pendingEnd = false;
        bool operator==(const Nesting &) const = default;
    };
    Nesting nesting() const { return { m_stack, m_expectKey, m_rootSeen, m_pendingEnd }; }
    // The absolute offset of the first byte not yet read into a token.
    qint64 offset() const { return m_base + qint64(m_pos); }
    // Before the first next(): go on from offset in the given nesting. A device is seeked there.
    bool resume(qint64 offset, const Nesting &nesting);

private:
    enum class Step { Done, NeedMore };

    Step tryParse();
    Step parseElement(std::size_t lt);
    bool quickScalar(std::size_t lt);
    Step parseScalar(int tag, std::string_view name, std::size_t tagOffset, std::size_t contentStart, bool empty);
    bool refill();
    bool fail(std::size_t offset, const QString &message);
    bool beginValue(std::size_t offset);
    void endValue();
    bool decodeText(std::string_view raw, std::size_t offset);
    bool findSeq(std::size_t from, std::string_view seq, std::size_t &at) const;
    void locate(qint64 absoluteOffset);

    const char *m_data = nullptr;
    std::size_t m_size = 0; // bytes available at m_data
    std::size_t m_pos = 0; // next unread byte, relative to m_data
    qint64 m_base = 0; // absolute offset of m_data[0] in the document
    QIODevice *m_device = nullptr;
    std::vector<char> m_buffer;
    qsizetype m_chunkSize = 0;
    bool m_eof = false;
    QByteArrayView m_document;

    std::vector<Frame> m_stack;
    bool m_expectKey = false;
    bool m_rootSeen = false;
    bool m_pendingEnd = false; // an empty <dict/> or <array/> still owes its end token

    Token m_token = Token::None;
    std::string_view m_text;
    std::string m_scratch;
    qint64 m_elementStart = 0;
    qint64 m_elementEnd = 0;
    qint64 m_integer = 0;
    double m_real = 0;

    QString m_error;
    qint64 m_errorLine = 0;
    qint64 m_errorColumn = 0;
};
