#include "CVSelectionCommands.h"

#include "CVJsonWriter.h"
#include "CVRecordJson.h"
#include "Library/CVFilter.h"
#include "Library/CVLibraryManager.h"
#include "Platform/CVSettings.h"

#include <QJsonDocument>
#include <QJsonObject>

#include <cstdio>

using namespace Qt::StringLiterals;

namespace {

constexpr int kStatusError = 2;

int error(const QString &message)
{
    std::fprintf(stderr, "%s\n", qUtf8Printable(message));
    return kStatusError;
}

void writeVariant(CVJsonWriter &json, const QVariant &v)
{
    switch (v.typeId()) {
    case QMetaType::QVariantMap: {
        const QVariantMap map = v.toMap();
        json.beginObject();
        for (auto it = map.cbegin(); it != map.cend(); ++it) {
            json.key(it.key());
            writeVariant(json, it.value());
        }
        json.endObject();
        break;
    }
    case QMetaType::Double:
        json.value(v.toDouble());
        break;
    case QMetaType::Int:
    case QMetaType::LongLong:
        json.value(v.toLongLong());
        break;
    case QMetaType::Bool:
        json.value(v.toBool());
        break;
    default:
        json.value(v.toString());
    }
}

} // namespace

CVSelectionCommands::CVSelectionCommands(CVLibraryManager &library, CVSettings &settings, Options options)
    : m_library(library)
    , m_settings(settings)
    , m_options(std::move(options))
{
}

bool CVSelectionCommands::prepare(bool predicateRequired)
{
    if (!m_options.searchFields.isEmpty())
        m_settings.setTransientValue(CVSettingsKey::SearchFields, m_options.searchFields);
    m_library.setSearchString(m_options.search);
    m_library.setPanes(&m_panes);
    m_library.compileAllKeyedLocationInformation();

    if (!m_options.spanFilter.isEmpty()) {
        static const QStringList names { u"All Tracks"_s, u"All Spanned"_s, u"Dependently Spanned"_s,
            u"Fully Spanned"_s, u"Not Spanned"_s, u"All Restored"_s, u"Dependently Restored"_s, u"Fully Restored"_s,
            u"Never Spanned"_s };
        if (!std::any_of(
                names.cbegin(), names.cend(), [&](const QString &n) { return m_options.spanFilter.contains(n); }))
            return error(u"Unknown span filter \"%1\"; one of: %2."_s.arg(m_options.spanFilter, names.join(u", "_s))),
                   false;
        m_panes.spanFilter = CVPredicate::fromText(CVSelection::predicateForSpanFilter(m_options.spanFilter));
    } else {
        m_panes.spanFilter = CVPredicate::fromText(u""_s);
    }
    m_panes.mediaType = CVPredicate::fromText(u""_s);
    if (!m_options.media.isEmpty() && m_options.media != u"All"_s) {
        static const QStringList media { u"Music"_s, u"Movies"_s, u"TV Shows"_s, u"Podcasts"_s, u"iTunes U"_s,
            u"Books"_s };
        if (!media.contains(m_options.media))
            return error(u"Unknown media \"%1\"; one of: All, %2."_s.arg(m_options.media, media.join(u", "_s))), false;
        m_panes.mediaType = CVPredicate::fromText(u"( MediaType == '%1' )"_s.arg(m_options.media));
    }
    m_panes.spanQueue = CVPredicate::fromText(u""_s);
    m_panes.playlist = CVPredicate::fromText(u""_s);
    if (!m_options.playlist.isEmpty()) {
        const auto &lists = m_library.playlists();
        const auto it = std::find_if(
            lists.cbegin(), lists.cend(), [&](const CVPlaylist &p) { return p.name == m_options.playlist; });
        if (it == lists.cend())
            return error(u"No playlist named \"%1\"."_s.arg(m_options.playlist)), false;
        m_panes.playlist = it->tracksPredicate;
    }
    // The location predicate of "/" lists the drive's top folders: set it after the rest.
    m_panes.location = CVPredicate::fromText(u""_s);
    if (!m_options.location.isEmpty())
        m_panes.location = CVPredicate::fromText(m_library.trees().predicateForLocationPath(m_options.location));

    const QString &p = m_options.predicate;
    if (p.trimmed().startsWith(u'{')) {
        QJsonParseError parseError;
        const QJsonDocument doc = QJsonDocument::fromJson(p.toUtf8(), &parseError);
        if (!doc.isObject())
            return error(u"The predicate is not a JSON object: %1"_s.arg(parseError.errorString())), false;
        m_predicate = CVPredicate::fromJson(doc.object());
        if (!doc.object().contains(u"TrackID"_s) && !doc.object().contains(u"PersistentID"_s))
            m_predicate = CVPredicate::fromText(u"EMPTY"_s); // selects nothing, as such a dictionary does
    } else {
        if (predicateRequired && p.isEmpty())
            return error(u"A predicate is needed."_s), false;
        QString parseError;
        if (!p.isEmpty() && p != u"EMPTY"_s && !CVFilter::parse(p, &parseError))
            return error(u"The predicate does not parse: %1"_s.arg(parseError)), false;
        m_predicate = CVPredicate::fromText(p);
    }
    return true;
}

std::optional<CVTrackList> CVSelectionCommands::selectedTracks()
{
    if (!prepare(false))
        return std::nullopt;
    return m_library.smartSelectPredicate(m_predicate);
}

int CVSelectionCommands::select()
{
    if (!prepare(false))
        return kStatusError;
    const CVTrackList tracks = m_library.smartSelectPredicate(m_predicate);
    CVJsonWriter json(stdout);
    if (m_options.json) {
        json.beginArray();
        for (const CVTrack *t : tracks->tracks)
            CVRecordJson::writeTrack(json, *t);
        json.endArray();
        json.newline();
        return 0;
    }
    QByteArray out;
    for (const CVTrack *t : tracks->tracks)
        out += t->text(CVAttr::PersistentID).toUtf8() + '\n';
    std::fwrite(out.constData(), 1, std::size_t(out.size()), stdout);
    return 0;
}

int CVSelectionCommands::browse()
{
    if (m_options.field.isEmpty() || m_options.column.isEmpty() || m_options.sortField.isEmpty())
        return error(u"browse needs --field, --column and --sort-field."_s);
    if (!prepare(false))
        return kStatusError;
    const CVBrowserList list = m_library.getBrowserListForField(
        m_options.field, m_options.column, m_options.sortField, m_library.smartSelectPredicate(m_predicate));
    CVJsonWriter json(stdout);
    json.beginArray();
    json.beginArray();
    for (const QString &key : list.keys)
        json.value(key);
    json.endArray();
    json.beginArray();
    for (const QString &row : list.rows) {
        json.beginObject();
        json.key(m_options.column);
        json.value(row);
        json.endObject();
    }
    json.endArray();
    json.endArray();
    json.newline();
    return 0;
}

int CVSelectionCommands::summary()
{
    if (!prepare(true))
        return kStatusError;
    const QVariantMap lines = m_library.getSummaryLinesForPredicate(m_predicate, m_options.title);
    CVJsonWriter json(stdout);
    writeVariant(json, lines);
    json.newline();
    return 0;
}

int CVSelectionCommands::locations()
{
    if (!prepare(false))
        return kStatusError;
    const auto ids = m_options.predicate.isEmpty() ? m_library.filterEmptyLocations()
                                                   : m_library.getLocationsForPredicate(m_options.predicate);
    CVJsonWriter json(stdout);
    json.beginArray();
    for (int id : *ids)
        CVRecordJson::writeLocationNode(json, m_library.locationNode(id));
    json.endArray();
    json.newline();
    return 0;
}

int CVSelectionCommands::playlistGroups()
{
    if (!prepare(false))
        return kStatusError;
    CVJsonWriter json(stdout);
    json.beginObject();
    json.key(u"groups"_s);
    json.beginArray();
    for (const QString &group : m_library.getPlaylistGroups())
        json.value(group);
    json.endArray();
    json.key(u"playlists"_s);
    json.beginArray();
    for (int i : *m_library.filterEmptyPlaylist())
        json.value(m_library.playlists()[std::size_t(i)].name);
    json.endArray();
    json.endObject();
    json.newline();
    return 0;
}
