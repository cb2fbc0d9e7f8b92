// Selection speed on a loaded library: a search stack cold and from the memo, the browser
// lists, the location table and the locations list, and a search typed key by key.
#include "Library/CVLibraryManager.h"
#include "Library/CVSelectionPanes.h"
#include "Platform/CVSettings.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QTemporaryDir>

#include <algorithm>
#include <cstdio>

using namespace Qt::StringLiterals;

namespace {

template<typename F>
double millis(F &&f)
{
    QElapsedTimer t;
    t.start();
    f();
    return double(t.nsecsElapsed()) / 1e6;
}

// The best of several runs, each after clearing the memo (and only the memo).
template<typename F>
double coldMillis(CVLibraryManager &library, int runs, F &&f)
{
    double best = 1e9;
    for (int i = 0; i < runs; ++i) {
        library.clearMemoization();
        best = std::min(best, millis(f));
    }
    return best;
}

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    if (argc != 2) {
        std::fprintf(stderr, "usage: bench_selection FILE\n");
        return 2;
    }
    QTemporaryDir dir;
    CVSettings settings(dir.filePath(u"settings.conf"_s));
    CVLibraryManager library(&settings);
    CVFixedSelectionPanes panes;
    library.setPanes(&panes);
    library.setLibraryFilePath(QString::fromLocal8Bit(argv[1]));
    if (library.loadiTunesXMLDatabase() != CVLibraryManager::LoadResult::Loaded)
        return 1;
    const std::size_t tracks = library.allTracks().size();

    // The first build takes fresh memory, as a start does; later ones reuse what the last freed.
    const double compileFirst = millis([&] { library.compileAllKeyedLocationInformation(); });
    double compile = 1e9;
    for (int i = 0; i < 3; ++i)
        compile = std::min(compile, millis([&] { library.compileAllKeyedLocationInformation(); }));
    const double locationsCold = coldMillis(library, 3, [&] { library.filterEmptyLocations(); });

    panes.mediaType = CVPredicate::fromText(u"( MediaType == 'Music' )"_s);
    panes.spanFilter = CVPredicate::fromText(u"( ItemIsSpanned == 0 )"_s);
    library.setSearchString(u"love night"_s);
    const CVPredicate none = CVPredicate::fromText(u""_s);
    std::size_t found = 0;
    // The very first search also folds the searched texts once for the whole load.
    const double firstSearch = millis([&] { found = library.smartSelectPredicate(none)->tracks.size(); });
    const double stackCold = coldMillis(library, 5, [&] { library.smartSelectPredicate(none); });
    double hit = 1e9;
    for (int i = 0; i < 1000; ++i)
        hit = std::min(hit, millis([&] { library.smartSelectPredicate(none); }));

    const CVTrackList shown = library.smartSelectPredicate(none);
    auto browser = [&](const char *field, const char *sort) {
        return coldMillis(library, 5, [&] {
            library.getBrowserListForField(
                QString::fromLatin1(field), u"c"_s, QString::fromLatin1(sort), library.allTrackList());
        });
    };
    const double genres = browser("Genre", "SortGenre");
    const double artists = browser("Artist", "SortArtist");
    const double albums = browser("Album", "SortAlbum");

    // Typing "midnight river" a key at a time: every keystroke is a new stack.
    double worstKey = 0;
    const QString typed = u"midnight river"_s;
    for (qsizetype n = 1; n <= typed.size(); ++n) {
        library.setSearchString(typed.left(n));
        worstKey = std::max(worstKey, millis([&] { library.smartSelectPredicate(none); }));
    }

    std::printf("{\"tracks\": %zu, \"searchFound\": %zu, \"firstSearchMs\": %.1f, \"stackColdMs\": %.1f, "
                "\"stackMemoHitUs\": %.2f, \"browserGenresMs\": %.1f, \"browserArtistsMs\": %.1f, "
                "\"browserAlbumsMs\": %.1f, \"compileLocationsFirstMs\": %.1f, \"compileLocationsMs\": %.1f, "
                "\"filterEmptyLocationsMs\": %.1f, "
                "\"worstKeystrokeMs\": %.1f}\n",
        tracks, found, firstSearch, stackCold, hit * 1000, genres, artists, albums, compileFirst, compile,
        locationsCold, worstKey);
    return 0;
}
