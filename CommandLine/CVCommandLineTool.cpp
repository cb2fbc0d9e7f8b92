#include "CVCommandLineTool.h"

#include "CVJsonWriter.h"
#include "CVStandardErrorPresenter.h"
#include "Library/CVLibraryManager.h"
#include "Platform/CVSettings.h"

#include <QCommandLineParser>
#include <QFileInfo>
#include <QMap>

#include <cstdio>

using namespace Qt::StringLiterals;

namespace {

constexpr int kStatusError = 2;

void writeTrack(CVJsonWriter &json, const CVTrack &track)
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

void writeOptionalText(CVJsonWriter &json, const std::optional<QString> &text)
{
    if (text)
        json.value(*text);
    else
        json.null();
}

} // namespace

CVCommandLineTool::CVCommandLineTool() = default;

CVCommandLineTool::~CVCommandLineTool() = default;

int CVCommandLineTool::run(const QStringList &arguments)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(u"Corvana: span and restore the media files of a music library."_s);
    parser.addHelpOption();
    const QCommandLineOption libraryOption(
        u"library"_s, u"Read this library file instead of the default one."_s, u"FILE"_s);
    parser.addOption(libraryOption);
    parser.addPositionalArgument(u"command"_s, u"info | tracks | playlists | show"_s);
    if (!parser.parse(arguments)) {
        std::fprintf(stderr, "%s\n", qUtf8Printable(parser.errorText()));
        return kStatusError;
    }
    if (parser.isSet(u"help"_s)) {
        std::fprintf(stdout, "%s", qUtf8Printable(parser.helpText()));
        return 0;
    }
    const QStringList positional = parser.positionalArguments();
    if (positional.size() != 1) {
        std::fprintf(stderr, "Usage: corvana-cli [--library FILE] info | tracks | playlists | show\n");
        return kStatusError;
    }
    const QString command = positional.first();
    using Command = int (CVCommandLineTool::*)(const CVLibraryManager &);
    const QMap<QString, Command> commands {
        { u"info"_s, &CVCommandLineTool::info },
        { u"tracks"_s, &CVCommandLineTool::tracks },
        { u"playlists"_s, &CVCommandLineTool::playlists },
        { u"show"_s, &CVCommandLineTool::show },
    };
    if (!commands.contains(command)) {
        std::fprintf(stderr, "Unknown command \"%s\".\n", qUtf8Printable(command));
        return kStatusError;
    }

    m_settings = std::make_unique<CVSettings>();
    m_settings->registerStandardDefaults();
    m_presenter = std::make_unique<CVStandardErrorPresenter>();
    m_library = std::make_unique<CVLibraryManager>(m_settings.get());
    CVLibraryManager &library = *m_library;
    library.setPresenter(m_presenter.get());
    if (parser.isSet(libraryOption)) {
        const QString file = parser.value(libraryOption);
        if (!QFileInfo(file).isFile()) {
            std::fprintf(stderr, "No library file at \"%s\".\n", qUtf8Printable(file));
            return kStatusError;
        }
        library.setLibraryFilePath(QFileInfo(file).absoluteFilePath());
    }
    if (library.loadiTunesXMLDatabase() != CVLibraryManager::LoadResult::Loaded)
        return kStatusError;
    return (this->*commands.value(command))(library);
}

int CVCommandLineTool::info(const CVLibraryManager &library)
{
    CVJsonWriter json(stdout);
    json.beginObject();
    json.key(u"tracks"_s);
    json.value(qint64(library.allTracks().size()));
    json.key(u"playlists"_s);
    json.value(qint64(library.playlists().size()));
    json.key(u"LibraryPersistentID"_s);
    writeOptionalText(json, library.iTunesPersistentID());
    json.key(u"MusicFolder"_s);
    writeOptionalText(json, library.iTunesMediaPath());
    json.endObject();
    json.newline();
    return 0;
}

int CVCommandLineTool::tracks(const CVLibraryManager &library)
{
    CVJsonWriter json(stdout);
    json.beginArray();
    for (const CVTrack *track : library.allTracks())
        writeTrack(json, *track);
    json.endArray();
    json.newline();
    return 0;
}

int CVCommandLineTool::playlists(const CVLibraryManager &library)
{
    CVJsonWriter json(stdout);
    json.beginArray();
    for (const CVPlaylist &p : library.playlists()) {
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
    json.endArray();
    json.newline();
    return 0;
}

int CVCommandLineTool::show(const CVLibraryManager &library)
{
    std::printf("Library file:  %s\n", qUtf8Printable(library.libraryFilePath()));
    std::printf("Media folder:  %s\n", qUtf8Printable(library.iTunesMediaPath().value_or(u"(none)"_s)));
    double bytes = 0, milliseconds = 0;
    QMap<QString, int> byType;
    QMap<QString, int> byFolder;
    for (const CVTrack *t : library.allTracks()) {
        bytes += t->real(CVAttr::Size);
        milliseconds += t->real(CVAttr::TotalTime);
        ++byType[t->textRef(CVAttr::MediaType)];
        ++byFolder[library.createDisplayTitleForPath(QFileInfo(t->currentPath()).path())];
    }
    std::printf("Tracks:        %zu (%s, %s)\n", library.allTracks().size(),
        qUtf8Printable(library.humanReadableSizeFromBytes(bytes)),
        qUtf8Printable(library.humanReadableTimeFromMilliseconds(milliseconds, true)));
    for (auto it = byType.cbegin(); it != byType.cend(); ++it)
        std::printf("  %-12s %d\n", qUtf8Printable(it.key()), it.value());
    std::printf("Playlists:     %zu\n", library.playlists().size());
    for (const CVPlaylist &p : library.playlists()) {
        int depth = 0;
        for (std::optional<QString> parent = p.parentPersistentID; parent && depth < 16; ++depth) {
            const auto it = std::find_if(library.playlists().cbegin(), library.playlists().cend(),
                [&](const CVPlaylist &q) { return q.playlistPersistentID == *parent; });
            parent = it == library.playlists().cend() ? std::nullopt : it->parentPersistentID;
        }
        const char *kind = p.folder.value_or(false) ? "folder" : p.genius ? "genius" : p.smartPlaylist ? "smart" : "";
        std::printf("  %*s%s%s%s%s  (%zu tracks)\n", depth * 2, "", qUtf8Printable(p.name), *kind ? " [" : "", kind,
            *kind ? "]" : "", p.tracksPredicate.trackIDs().size());
    }
    std::printf("Folders:       %lld\n", qlonglong(byFolder.size()));
    int shown = 0;
    for (auto it = byFolder.cbegin(); it != byFolder.cend() && shown < 12; ++it, ++shown)
        std::printf("  %s: %d\n", qUtf8Printable(it.key()), it.value());
    if (byFolder.size() > shown)
        std::printf("  ... and %lld more\n", qlonglong(byFolder.size() - shown));
    return 0;
}
