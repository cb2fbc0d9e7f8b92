#include "Library/CVPredicateArchive.h"

#include <QJsonDocument>
#include <QJsonObject>

using namespace Qt::StringLiterals;

namespace {

const QString kVersionKey = u"CVDraggingPredicate"_s;

} // namespace

QByteArray CVPredicateArchive::archive(const CVPredicate &predicate)
{
    QJsonObject o;
    o.insert(kVersionKey, Version);
    if (predicate.kind() == CVPredicate::Kind::Text)
        o.insert(u"text"_s, predicate.text());
    else
        o.insert(u"dictionary"_s, predicate.toJson());
    return QJsonDocument(o).toJson(QJsonDocument::Compact);
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
