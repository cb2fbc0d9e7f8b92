#include "CVRecordJson.h"

#include "CVJsonWriter.h"
#include "Library/CVLibraryTrees.h"
#include "Library/CVPlaylist.h"
#include "Library/CVSpanRecord.h"

#include "Library/CVTrack.h"
#include <QDateTime>

using namespace Qt::StringLiterals;

void CVRecordJson::writeTrack(CVJsonWriter &json, const CVTrack &track)
{
    json.beginObject();
    for (int i = 0; i < kCVAttrCount; ++i) {
        const auto attr = CVAttr(i);
        if (!track.has(attr))
            continue;
        json.key(QString(CVAttribute::name(attr)));
        switch (CVAttribute::type(attr)) {
        case CVAttrType::Integer:
            json.value(track.integer(attr));
            break;
        case CVAttrType::Real:
            json.value(track.real(attr));
            break;
        case CVAttrType::Boolean:
            json.value(track.flag(attr));
            break;
        default:
            json.value(track.text(attr));
            break;
        }
    }
    json.endObject();
}

void CVRecordJson::writePlaylist(CVJsonWriter &json, const CVPlaylist &p)
{
    json.beginObject();
    json.key(u"Name"_s);
    json.value(p.name);
    if (p.playlistID) {
        json.key(u"PlaylistID"_s);
        json.value(*p.playlistID);
    }
    json.key(u"PlaylistPersistentID"_s);
    json.value(p.playlistPersistentID);
    if (p.parentPersistentID) {
        json.key(u"ParentPersistentID"_s);
        json.value(*p.parentPersistentID);
    }
    if (p.folder) {
        json.key(u"Folder"_s);
        json.value(*p.folder);
    }
    if (p.smartPlaylist) {
        json.key(u"SmartPlaylist"_s);
        json.value(true);
    }
    json.key(u"Genius"_s);
    json.value(p.genius);
    json.key(u"Group"_s);
    json.value(p.group);
    json.key(u"TracksPredicate"_s);
    json.beginObject();
    json.key(u"TrackID"_s);
    json.beginArray();
    for (qint64 id : p.tracksPredicate.trackIDs())
        json.value(id);
    json.endArray();
    json.key(u"isPlaylist"_s);
    json.value(true);
    json.key(u"cacheKey"_s);
    json.value(p.tracksPredicate.cacheKey());
    json.endObject();
    json.endObject();
}

void CVRecordJson::writeLocationNode(CVJsonWriter &json, const CVLocationNode &node)
{
    json.beginObject();
    json.key(u"Path"_s);
    json.value(node.path);
    json.key(u"lcPath"_s);
    json.value(node.lcPath);
    if (node.hasParent) {
        json.key(u"ParentPath"_s);
        json.value(node.parentPath);
        json.key(u"lcParentPath"_s);
        json.value(node.lcParentPath);
    }
    json.key(u"IsFile"_s);
    json.value(node.isFile);
    json.endObject();
}

void CVRecordJson::writeSpanRecord(CVJsonWriter &json, const CVSpanRecord &record)
{
    json.beginObject();
    for (int i = 0; i < kCVSpanAttrCount; ++i) {
        const auto a = CVSpanAttr(i);
        if (!record.has(a))
            continue;
        json.key(QString(CVSpanRecord::name(a)));
        const QVariant v = record.value(a);
        switch (CVSpanRecord::type(a)) {
        case CVSpanAttrType::Text:
            json.value(v.toString());
            break;
        case CVSpanAttrType::Integer:
            json.value(v.toLongLong());
            break;
        case CVSpanAttrType::Real:
            json.value(v.toDouble());
            break;
        case CVSpanAttrType::Date:
            json.value(QDateTime::fromSecsSinceEpoch(qint64(v.toDouble()), Qt::UTC).toString(Qt::ISODate));
            break;
        case CVSpanAttrType::Boolean:
            json.value(v.toBool());
            break;
        }
    }
    json.endObject();
}
