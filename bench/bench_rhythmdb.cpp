// Rhythmbox's library at scale: reading a rhythmdb.xml against reading an iTunes-format library
// of the same number of tracks (per track, best of three), and 10,000 new locations written into a
// copy of the rhythmdb.xml as the link does when Rhythmbox is not running (three rounds).
#include "Library/CVLibraryFileReader.h"
#include "Library/CVRhythmDB.h"
#include "Library/CVRhythmDBReader.h"
#include "Library/CVRhythmDBRewriter.h"
#include "Library/CVRhythmboxIdentities.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QTemporaryDir>

#include <algorithm>
#include <cstdio>
#include <vector>

using namespace Qt::StringLiterals;

int main(int argc, char *argv[])
{
    if (argc < 3) {
        std::fprintf(stderr, "usage: bench_rhythmdb RHYTHMDB.XML ITUNES-LIBRARY.XML [CHANGES]\n");
        return 2;
    }
    QCoreApplication app(argc, argv);
    const QString database = QString::fromLocal8Bit(argv[1]);
    const QString iTunes = QString::fromLocal8Bit(argv[2]);
    const int changes = argc > 3 ? std::atoi(argv[3]) : 10000;
    QTemporaryDir dir;
    CVRhythmboxIdentities identities(dir.path(), database);

    double rhythmdbBest = 1e9, iTunesBest = 1e9;
    std::size_t songs = 0, tracks = 0;
    for (int round = 0; round < 3; ++round) {
        QElapsedTimer timer;
        timer.start();
        CVLibraryContents contents;
        CVRhythmDBReader reader(identities);
        if (!reader.readFile(database, contents)) {
            std::fprintf(stderr, "%s\n", qPrintable(reader.errorString()));
            return 1;
        }
        rhythmdbBest = std::min(rhythmdbBest, double(timer.nsecsElapsed()) / 1e6);
        songs = contents.tracks.size();
        timer.restart();
        CVLibraryContents other;
        if (!CVLibraryFileReader().readFile(iTunes, other))
            return 1;
        iTunesBest = std::min(iTunesBest, double(timer.nsecsElapsed()) / 1e6);
        tracks = other.tracks.size();
    }
    std::printf("read: rhythmdb.xml %zu songs in %.0f ms (%.2f us a song); iTunes-format %zu tracks in %.0f ms "
                "(%.2f us a track)\n",
        songs, rhythmdbBest, rhythmdbBest * 1000 / double(songs), tracks, iTunesBest,
        iTunesBest * 1000 / double(tracks));

    // The songs' locations, and new ones on a drive.
    CVLibraryContents contents;
    CVRhythmDBReader(identities).readFile(database, contents);
    std::vector<QByteArray> from;
    for (const CVTrack &track : contents.tracks)
        from.push_back(CVRhythmDB::fileURIFromPath(track.text(CVAttr::Location)));
    const std::size_t step = std::max<std::size_t>(1, from.size() / std::size_t(changes));
    std::vector<double> rewriteMs;
    for (int round = 0; round < 3; ++round) {
        const QString copy = dir.filePath(u"rhythmdb.xml"_s);
        QFile::remove(copy);
        if (!QFile::copy(database, copy))
            return 1;
        QList<CVRhythmDBRewriter::Change> batch;
        for (std::size_t i = 0; i < from.size() && batch.size() < changes; i += step)
            batch.append({ from[i], "file:///media/user/Span/Music/" + QByteArray::number(qulonglong(i)) + ".mp3",
                QByteArray("file:///media/user/Span") });
        QElapsedTimer timer;
        timer.start();
        const CVRhythmDBRewriter::Result result = CVRhythmDBRewriter::apply(copy, batch);
        rewriteMs.push_back(double(timer.nsecsElapsed()) / 1e6);
        if (!result.ok || result.applied != int(batch.size())) {
            std::fprintf(stderr, "rewrite failed: %s\n", qPrintable(result.error));
            return 1;
        }
        std::printf("round %d: %lld locations written into %zu songs (%.0f MB) in %.0f ms\n", round + 1,
            qlonglong(batch.size()), songs, double(QFile(database).size()) / 1e6, rewriteMs.back());
    }
    std::sort(rewriteMs.begin(), rewriteMs.end());
    std::printf("median rewrite %.0f ms\n", rewriteMs[1]);
    return 0;
}
