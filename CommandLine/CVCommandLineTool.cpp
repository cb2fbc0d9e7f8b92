#include "CVCommandLineTool.h"

#include "CVCommandLineHost.h"
#include "CVHelperCommands.h"
#include "CVJsonWriter.h"
#include "CVRecordJson.h"
#include "CVSelectionCommands.h"
#include "CVSpanCommands.h"
#include "CVStandardErrorPresenter.h"
#include "Engine/CVMediaSpanner.h"
#include "Engine/CVPlayerLink.h"
#include "Library/CVLibraryManager.h"
#include "Library/CVPlayerLibraryFile.h"
#include "Library/CVSpanHistory.h"
#include "Library/CVSpanRunState.h"
#include "Platform/CVFileManagerLink.h"
#include "Platform/CVInstanceLock.h"
#include "Platform/CVLog.h"
#include "Platform/CVSettings.h"

#include <QCommandLineParser>
#include <QDir>
#include <QFileInfo>
#include <QMap>

#include <cstdio>

using namespace Qt::StringLiterals;

namespace {

constexpr int kStatusError = 2;
constexpr int kStatusNoHistory = 3;

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
    const QCommandLineOption playerOption(u"player"_s,
        u"Whose library: rhythmbox, strawberry, itunes-file or dbus (default: the preference \"Player\", auto)."_s,
        u"PLAYER"_s);
    const QCommandLineOption search(u"search"_s, u"Search text, as typed in the search field."_s, u"TEXT"_s);
    const QCommandLineOption searchFields(
        u"search-fields"_s, u"Fields the search looks at, such as Name,Artist."_s, u"F,F"_s);
    const QCommandLineOption spanFilter(u"span-filter"_s, u"Span filter, such as \"Fully Spanned\"."_s, u"NAME"_s);
    const QCommandLineOption media(u"media"_s, u"Media type: All, Music, Movies, TV Shows, ..."_s, u"NAME"_s);
    const QCommandLineOption location(u"location"_s, u"A location node's path; folders end in \"/\"."_s, u"PATH"_s);
    const QCommandLineOption playlist(u"playlist"_s, u"The first playlist of this name."_s, u"NAME"_s);
    const QCommandLineOption json(u"json"_s, u"select and history: print the records as JSON."_s);
    const QCommandLineOption field(u"field"_s, u"browse: the column's field."_s, u"FIELD"_s);
    const QCommandLineOption column(u"column"_s, u"browse: the column identifier."_s, u"COLUMN"_s);
    const QCommandLineOption sortField(u"sort-field"_s, u"browse: the field the column sorts by."_s, u"KEY"_s);
    const QCommandLineOption title(u"title"_s, u"summary: the alternate title."_s, u"TEXT"_s);
    const QCommandLineOption to(u"to"_s, u"span: the span location."_s, u"DIR"_s);
    const QCommandLineOption anyway(
        u"anyway"_s, u"span, restore: go on although files are missing or space is short."_s);
    const QCommandLineOption yes(u"yes"_s, u"span, restore, update-dependent: answer the confirmation."_s);
    const QCommandLineOption dryRun(u"dry-run"_s, u"span, restore, update-dependent: print the plan, touch nothing."_s);
    const QCommandLineOption allowRoot(
        u"allow-root"_s, u"span, restore, update-dependent: run although the user is root (the administrator)."_s);
    const QCommandLineOption windowsNames(u"windows-names"_s,
        u"span: names of spanned files follow Windows rules: auto (where the drive wants them), always, never."_s,
        u"WHEN"_s);
    parser.addOptions({ libraryOption, playerOption, search, searchFields, spanFilter, media, location, playlist, json,
        field, column, sortField, title, to, anyway, yes, dryRun, allowRoot, windowsNames });
    parser.addPositionalArgument(u"command"_s,
        u"info | tracks | playlists | show | load | history | select | browse | summary | locations | "
        "playlist-groups | span | restore | update-dependent | locate | "_s
            + CVHelperCommands::usage());
    parser.addPositionalArgument(u"predicate"_s, u"A filter text or a JSON dictionary predicate."_s, u"[PREDICATE]"_s);
    if (!parser.parse(arguments)) {
        std::fprintf(stderr, "%s\n", qUtf8Printable(parser.errorText()));
        return kStatusError;
    }
    if (parser.isSet(u"help"_s)) {
        std::fprintf(stdout, "%s", qUtf8Printable(parser.helpText()));
        return 0;
    }
    const QStringList positional = parser.positionalArguments();
    // The helper's operations need neither the library nor the instance lock.
    if (positional.value(0) == u"helper"_s)
        return CVHelperCommands().run(positional.mid(1));
    static const QStringList selecting { u"select"_s, u"browse"_s, u"summary"_s, u"locations"_s, u"playlist-groups"_s,
        u"span"_s, u"restore"_s, u"locate"_s };
    const bool selects = !positional.isEmpty() && selecting.contains(positional.first());
    if (positional.isEmpty() || positional.size() > (selects ? 2 : 1)) {
        std::fprintf(stderr, "Usage: corvana-cli [--library FILE] COMMAND [options] [PREDICATE]; see --help\n");
        return kStatusError;
    }
    const QString command = positional.first();
    static const QStringList plain { u"info"_s, u"tracks"_s, u"playlists"_s, u"show"_s, u"load"_s, u"history"_s,
        u"update-dependent"_s };
    if (!plain.contains(command) && !selects) {
        std::fprintf(stderr, "Unknown command \"%s\".\n", qUtf8Printable(command));
        return kStatusError;
    }

    m_instanceLock = std::make_unique<CVInstanceLock>();
    if (!m_instanceLock->tryLock()) {
        CVLog::log(u"Only one instance of Corvana can run at a time..."_s);
        return kStatusError;
    }
    m_settings = std::make_unique<CVSettings>();
    m_presenter = std::make_unique<CVStandardErrorPresenter>();
    m_library = std::make_unique<CVLibraryManager>(m_settings.get());
    CVLibraryManager &library = *m_library;
    library.setPresenter(m_presenter.get());
    if (parser.isSet(playerOption)) {
        const QString player = parser.value(playerOption);
        if (!CVPlayerLibraryFile::isPlayerName(player)) {
            std::fprintf(stderr, "--player takes rhythmbox, strawberry, itunes-file or dbus.\n");
            return kStatusError;
        }
        library.setPlayer(player);
    }
    QString libraryFile;
    if (parser.isSet(libraryOption)) {
        const QString file = parser.value(libraryOption);
        if (!QFileInfo(file).isFile()) {
            std::fprintf(stderr, "No library file at \"%s\".\n", qUtf8Printable(file));
            return kStatusError;
        }
        libraryFile = QFileInfo(file).absoluteFilePath();
        library.setLibraryFilePath(libraryFile);
    } else {
        libraryFile = library.findLibraryFile();
    }

    // The crash flags, kept as the window keeps them: a run that ended without its results is
    // recovered by whichever front end starts next.
    CVSettings &settings = *m_settings;
    const bool crashedWhileSpanning
        = settings.boolValue(CVSettingsKey::DidCrashLastRun) && settings.boolValue(CVSettingsKey::IsSpanning);
    settings.setValue(CVSettingsKey::DidCrashLastRun, true);
    settings.setValue(CVSettingsKey::IsSpanning, crashedWhileSpanning);
    settings.synchronize();
    m_host = std::make_unique<CVCommandLineHost>();
    m_host->setCrashedWhileSpanningLastRun(crashedWhileSpanning);
    // Finding the player asks the session bus; only runs and a recovery need it.
    static const QStringList running { u"span"_s, u"restore"_s, u"update-dependent"_s, u"locate"_s };
    if (crashedWhileSpanning || running.contains(command)) {
        m_playerLink = CVPlayerLink::choose(libraryFile, CVFileManagerLink::shared(), library.player());
        if (!m_playerLink) {
            std::fprintf(stderr, "No player on the session bus offers org.corvana.PlayerLibrary1.\n");
            return kStatusError;
        }
    }
    m_spanner = std::make_unique<CVMediaSpanner>(m_playerLink.get(), CVFileManagerLink::shared(), m_presenter.get());
    m_spanner->setHost(m_host.get());
    m_spanner->setRunHost(m_host.get());
    m_spanner->setAllowRoot(parser.isSet(allowRoot));
    if (parser.isSet(windowsNames)) {
        static const QHash<QString, CVMediaSpanner::WindowsNames> modes {
            { u"auto"_s, CVMediaSpanner::WindowsNames::Auto }, { u"always"_s, CVMediaSpanner::WindowsNames::Always },
            { u"never"_s, CVMediaSpanner::WindowsNames::Never }
        };
        const auto mode = modes.constFind(parser.value(windowsNames));
        if (mode == modes.cend()) {
            std::fprintf(stderr, "--windows-names takes auto, always or never.\n");
            return kStatusError;
        }
        m_spanner->setWindowsNames(*mode);
    }
    m_spanner->setLibrary(&library);
    m_spanner->setSettings(&settings);
    if (crashedWhileSpanning)
        std::fprintf(stderr,
            "Corvana did not finish its last span or restore. The player's library is read as the "
            "run left it; span or restore the same tracks again to complete the work.\n");
    library.setHost(m_host.get());
    if (library.loadiTunesXMLDatabase() != CVLibraryManager::LoadResult::Loaded)
        return kStatusError;
    // The rest of a load: the span history opened, joined onto the tracks, and saved.
    m_history = std::make_unique<CVSpanHistory>(m_presenter.get());
    m_history->setLibraryPersistentID([&library] { return library.iTunesPersistentID(); });
    library.setSpanHistory(m_history.get());
    library.setRunState(m_spanner.get());
    m_host->setParts(m_spanner.get(), m_playerLink.get(), &library, m_history.get());
    m_history->managedObjectContext(u"Span"_s);
    const CVLibraryManager::JoinResult join = library.joinSpanHistory();
    const int status = runCommand(command, parser, positional, join);
    // A normal end; a crash while spanning stays on record until a run completes.
    if (!m_host->crashedWhileSpanningLastRun())
        settings.setValue(CVSettingsKey::DidCrashLastRun, false);
    settings.synchronize();
    return status;
}

int CVCommandLineTool::runCommand(const QString &command, const QCommandLineParser &parser,
    const QStringList &positional, const CVLibraryManager::JoinResult &join)
{
    CVLibraryManager &library = *m_library;
    if (command == u"load"_s) {
        CVJsonWriter out(stdout);
        out.beginObject();
        out.key(u"tracks"_s);
        out.value(qint64(library.allTracks().size()));
        out.key(u"records"_s);
        out.value(qint64(join.records));
        out.key(u"joined"_s);
        out.value(qint64(join.joined));
        out.key(u"removedFromITunes"_s);
        out.value(qint64(join.removedFromITunes));
        out.endObject();
        out.newline();
        return m_history->storeFailed() ? kStatusNoHistory : 0;
    }
    if (command == u"history"_s)
        return history(library, parser.isSet(u"json"_s));

    if (command == u"info"_s)
        return info(library);
    if (command == u"tracks"_s)
        return tracks(library);
    if (command == u"playlists"_s)
        return playlists(library);
    if (command == u"show"_s)
        return show(library);
    CVSelectionCommands::Options options;
    options.search = parser.value(u"search"_s);
    if (parser.isSet(u"search-fields"_s))
        options.searchFields = parser.value(u"search-fields"_s).split(u',', Qt::SkipEmptyParts);
    options.spanFilter = parser.value(u"span-filter"_s);
    options.media = parser.value(u"media"_s);
    options.location = parser.value(u"location"_s);
    options.playlist = parser.value(u"playlist"_s);
    options.predicate = positional.value(1);
    options.json = parser.isSet(u"json"_s);
    options.field = parser.value(u"field"_s);
    options.column = parser.value(u"column"_s);
    options.sortField = parser.value(u"sort-field"_s);
    options.title = parser.value(u"title"_s);
    CVSelectionCommands selection(library, *m_settings, options);

    CVSpanCommands::Options spanOptions;
    spanOptions.to = parser.value(u"to"_s);
    spanOptions.anyway = parser.isSet(u"anyway"_s);
    spanOptions.yes = parser.isSet(u"yes"_s);
    spanOptions.dryRun = parser.isSet(u"dry-run"_s);
    CVSpanCommands spanning(library, *m_settings, *m_spanner, *m_host, spanOptions);
    if (command == u"update-dependent"_s)
        return spanning.updateDependent();
    if (command == u"span"_s || command == u"restore"_s || command == u"locate"_s) {
        const std::optional<CVTrackList> tracks = selection.selectedTracks();
        if (!tracks)
            return kStatusError;
        if (command == u"locate"_s)
            return spanning.locate(*tracks);
        return spanning.span(*tracks, command == u"restore"_s);
    }
    if (command == u"select"_s)
        return selection.select();
    if (command == u"browse"_s)
        return selection.browse();
    if (command == u"summary"_s)
        return selection.summary();
    if (command == u"locations"_s)
        return selection.locations();
    return selection.playlistGroups();
}

int CVCommandLineTool::history(CVLibraryManager &library, bool asJson)
{
    const std::vector<CVSpanRecord *> records = library.fetchAllSpannedItems();
    if (asJson) {
        CVJsonWriter json(stdout);
        json.beginArray();
        for (const CVSpanRecord *r : records)
            CVRecordJson::writeSpanRecord(json, *r);
        json.endArray();
        json.newline();
    } else {
        for (const CVSpanRecord *r : records) {
            const char *state = r->flag(CVSpanAttr::RemovedFromITunes) ? "removed"
                : r->flag(CVSpanAttr::ItemIsRestored)                  ? "restored"
                : r->flag(CVSpanAttr::SymSpan)                         ? "dependently spanned"
                                                                       : "fully spanned";
            std::printf("%s  %-19s  %s\n", qUtf8Printable(r->text(CVSpanAttr::PersistentID)), state,
                qUtf8Printable(r->text(CVSpanAttr::SpanLocation)));
        }
    }
    return m_history->storeFailed() ? kStatusNoHistory : 0;
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
        CVRecordJson::writeTrack(json, *track);
    json.endArray();
    json.newline();
    return 0;
}

int CVCommandLineTool::playlists(const CVLibraryManager &library)
{
    CVJsonWriter json(stdout);
    json.beginArray();
    for (const CVPlaylist &p : library.playlists())
        CVRecordJson::writePlaylist(json, p);
    json.endArray();
    json.newline();
    return 0;
}

int CVCommandLineTool::show(CVLibraryManager &library)
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
