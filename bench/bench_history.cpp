// The span history at scale: 10,000 records added and saved at once, then a store of
// 100,000 records joined with a 100,000-track library at load, on top of the read.
#include "Library/CVLibraryManager.h"
#include "Library/CVSpanHistory.h"
#include "Library/CVSpanRunState.h"
#include "Platform/CVSettings.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QTemporaryDir>

#include <cstdio>

using namespace Qt::StringLiterals;

namespace {

double millisSince(const QElapsedTimer &t)
{
    return double(t.nsecsElapsed()) / 1e6;
}

} // namespace

int main(int argc, char *argv[])
{
    if (argc != 2) {
        std::fprintf(stderr, "usage: bench_history FILE\n");
        return 2;
    }
    QTemporaryDir home;
    qputenv("XDG_DATA_HOME", QFile::encodeName(home.path()));
    QCoreApplication app(argc, argv);
    CVSettings settings(home.filePath(u"settings.conf"_s));
    CVFixedSpanRunState state;
    state.running = true;
    state.location = u"/Volumes/Archive"_s;
    const QString file = QString::fromLocal8Bit(argv[1]);

    double addTenThousand = 0;
    std::size_t tracks = 0;
    {
        CVLibraryManager library(&settings);
        CVSpanHistory history;
        library.setLibraryFilePath(file);
        library.setRunState(&state);
        library.setSpanHistory(&history);
        history.setLibraryPersistentID([&] { return library.iTunesPersistentID(); });
        if (library.loadiTunesXMLDatabase() != CVLibraryManager::LoadResult::Loaded)
            return 1;
        library.joinSpanHistory();
        tracks = library.allTracks().size();
        QElapsedTimer t;
        t.start();
        for (std::size_t i = 0; i < tracks && i < 10000; ++i) {
            CVTrack *track = library.allTracks()[i];
            library.addItemToSpanStore(track, u"/Volumes/Archive/"_s + track->text(CVAttr::Name));
        }
        if (!history.saveAction())
            return 1;
        addTenThousand = millisSince(t);
        for (std::size_t i = 10000; i < tracks; ++i) {
            CVTrack *track = library.allTracks()[i];
            library.addItemToSpanStore(track, u"/Volumes/Archive/"_s + track->text(CVAttr::Name));
        }
        if (!history.saveAction())
            return 1;
    }

    CVLibraryManager library(&settings);
    CVSpanHistory history;
    CVFixedSpanRunState idle;
    library.setLibraryFilePath(file);
    library.setRunState(&idle);
    library.setSpanHistory(&history);
    history.setLibraryPersistentID([&] { return library.iTunesPersistentID(); });
    QElapsedTimer t;
    t.start();
    if (library.loadiTunesXMLDatabase() != CVLibraryManager::LoadResult::Loaded)
        return 1;
    const double read = millisSince(t);
    t.restart();
    history.managedObjectContext(u"Span"_s);
    const CVLibraryManager::JoinResult join = library.joinSpanHistory();
    const double joinMs = millisSince(t);
    std::printf("{\"tracks\": %zu, \"records\": %d, \"joined\": %d, \"add10000AndSaveMs\": %.0f, \"readMs\": %.0f, "
                "\"openJoinSaveMs\": %.0f}\n",
        tracks, join.records, join.joined, addTenThousand, read, joinMs);
    return 0;
}
