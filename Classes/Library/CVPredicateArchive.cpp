#include "Library/CVPredicateArchive.h"

#include <QJsonDocument>
#include <QJsonObject>

#include <algorithm>
#include <cstdio>

using namespace Qt::StringLiterals;

namespace {

const QString kVersionKey = u"CVDraggingPredicate"_s;

// A JSON string, as QJsonDocument writes it (UTF-8, the short escapes, \u for other controls).
void appendString(QByteArray &out, const QString &text)
{
    out += '"';
    // Identifiers and their keys are plain ASCII: those go straight in, without a UTF-8 copy.
    const bool plain = std::all_of(text.cbegin(), text.cend(),
        [](QChar c) { return c.unicode() >= 0x20 && c.unicode() < 0x80 && c != u'"' && c != u'\\'; });
    if (plain) {
        const qsizetype at = out.size();
        out.resize(at + text.size());
        char *to = out.data() + at;
        for (const QChar c : text)
            *to++ = char(c.unicode());
        out += '"';
        return;
    }
    const QByteArray utf8 = text.toUtf8();
    for (const char c : utf8) {
        switch (c) {
        case '"':
            out += "\\\"";
            break;
        case '\\':
            out += "\\\\";
            break;
        case '\b':
            out += "\\b";
            break;
        case '\f':
            out += "\\f";
            break;
        case '\n':
            out += "\\n";
            break;
        case '\r':
            out += "\\r";
            break;
        case '\t':
            out += "\\t";
            break;
        default:
            if (uchar(c) < 0x20) {
                char escaped[8];
                std::snprintf(escaped, sizeof escaped, "\\u%04x", uchar(c));
                out += escaped;
            } else {
                out += c;
            }
        }
    }
    out += '"';
}

} // namespace

QByteArray CVPredicateArchive::archive(const CVPredicate &predicate)
{
    // Written directly rather than through QJsonObject: a saved queue of a whole library holds
    // 100,000 identifiers twice, and is written at every change of the queue. The keys come in
    // QJsonDocument's order, so the bytes are those it would write.
    QByteArray out;
    out += "{\"CVDraggingPredicate\":" + QByteArray::number(Version) + ',';
    if (predicate.kind() == CVPredicate::Kind::Text) {
        out += "\"text\":";
        appendString(out, predicate.text());
        out += '}';
        return out;
    }
    const bool byTrackID = predicate.identifierField() == CVAttr::TrackID;
    const qsizetype count = byTrackID ? qsizetype(predicate.trackIDs().size()) : predicate.persistentIDs().size();
    out.reserve(out.size() + 64 + count * 40 + predicate.cacheKey().size());
    out += byTrackID ? "\"dictionary\":{\"TrackID\":[" : "\"dictionary\":{\"PersistentID\":[";
    for (qsizetype i = 0; i < count; ++i) {
        if (i > 0)
            out += ',';
        if (byTrackID)
            out += QByteArray::number(predicate.trackIDs()[std::size_t(i)]);
        else
            appendString(out, predicate.persistentIDs()[i]);
    }
    out += ']';
    if (!predicate.cacheKey().isNull()) {
        out += ",\"cacheKey\":";
        appendString(out, predicate.cacheKey());
    }
    if (predicate.isPlaylist())
        out += ",\"isPlaylist\":true";
    if (predicate.isSavedQueue())
        out += ",\"isSavedQueue\":true";
    if (predicate.noSearch())
        out += ",\"noSearch\":true";
    out += "}}";
    return out;
}

std::optional<CVPredicate> CVPredicateArchive::unarchive(const QByteArray &data)
{
    const QJsonDocument doc = QJsonDocument::fromJson(data);
    if (!doc.isObject())
        return std::nullopt;
    const QJsonObject o = doc.object();
    const QJsonValue version = o.value(kVersionKey);
    if (!version.isDouble() || version.toInt() < 1 || version.toInt() > Version)
        return std::nullopt;
    if (o.value(u"text"_s).isString())
        return CVPredicate::fromText(o.value(u"text"_s).toString());
    const QJsonValue dictionary = o.value(u"dictionary"_s);
    if (!dictionary.isObject())
        return std::nullopt;
    // A dictionary without identifiers is still a record: it selects nothing.
    return CVPredicate::fromJson(dictionary.toObject());
}
