// Strawberry's collection at scale: reading a collection database against reading an
// iTunes-format library of the same number of tracks (per track, best of three), and 10,000 new
// places written into a copy of the database as the link does when Strawberry is not running
// (backup, one transaction, integrity check; three rounds).
#include "Library/CVLibraryFileReader.h"
#include "Library/CVStrawberryReader.h"
#include "Library/CVStrawberryRewriter.h"

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
        std::fprintf(stderr, "usage: bench_strawberry STRAWBERRY.DB ITUNES-LIBRARY.XML [CHANGES]\n");
        return 2;
    }
    QCoreApplication app(argc, argv);
    const QString database = QString::fromLocal8Bit(argv[1]);
    const QString iTunes = QString::fromLocal8Bit(argv[2]);
    const int changes = argc > 3 ? std::atoi(argv[3]) : 10000;
    QTemporaryDir dir;

    double strawberryBest = 1e9, iTunesBest = 1e9;
    std::size_t songs = 0, tracks = 0;
    std::vector<qint64> rowIDs;
    for (int round = 0; round < 3; ++round) {
        QElapsedTimer timer;
        timer.start();
        CVLibraryContents contents;
        CVStrawberryReader reader;
        if (!reader.readFile(database, contents)) {
            std::fprintf(stderr, "%s\n", qPrintable(reader.errorString()));
            return 1;
        }
        strawberryBest = std::min(strawberryBest, double(timer.nsecsElapsed()) / 1e6);
        songs = contents.tracks.size();
        if (rowIDs.empty())
            for (const CVTrack &track : contents.tracks)
                rowIDs.push_back(track.integer(CVAttr::TrackID));
        timer.restart();
        CVLibraryContents other;
        if (!CVLibraryFileReader().readFile(iTunes, other))
            return 1;
        iTunesBest = std::min(iTunesBest, double(timer.nsecsElapsed()) / 1e6);
        tracks = other.tracks.size();
    }
    std::printf("read: strawberry.db %zu songs in %.0f ms (%.2f us a song); iTunes-format %zu tracks in %.0f ms "
                "(%.2f us a track)\n",
        songs, strawberryBest, strawberryBest * 1000 / double(songs), tracks, iTunesBest,
        iTunesBest * 1000 / double(tracks));

    const std::size_t step = std::max<std::size_t>(1, rowIDs.size() / std::size_t(changes));
    std::vector<double> writeMs, transactionMs;
    for (int round = 0; round < 3; ++round) {
        const QString copy = dir.filePath(u"strawberry.db"_s);
        const QString backup = dir.filePath(u"backup.db"_s);
        QFile::remove(copy);
        QFile::remove(backup);
        if (!QFile::copy(database, copy))
            return 1;
        QList<CVStrawberryRewriter::Change> batch;
        for (std::size_t i = 0; i < rowIDs.size() && batch.size() < changes; i += step)
            batch.append(
                { rowIDs[i], u"/media/user/Span/Music/Artist %1/%2.mp3"_s.arg(i % 500).arg(i), u"/media/user/Span"_s });
        QElapsedTimer timer;
        timer.start();
        const CVStrawberryRewriter::Result result = CVStrawberryRewriter::apply(copy, backup, batch);
        writeMs.push_back(double(timer.nsecsElapsed()) / 1e6);
        if (!result.ok || result.changed != int(batch.size())) {
            std::fprintf(stderr, "write failed: %s (%d of %lld)\n", qPrintable(result.error), result.changed,
                qlonglong(batch.size()));
            return 1;
        }
        std::printf("round %d: %lld places written into %zu songs (%.0f MB) in %.0f ms: backup %lld ms, "
                    "transaction %lld ms, integrity check %lld ms\n",
            round + 1, qlonglong(batch.size()), songs, double(QFile(database).size()) / 1e6, writeMs.back(),
            result.backupMs, result.transactionMs, result.checkMs);
        transactionMs.push_back(double(result.transactionMs));
    }
    std::sort(writeMs.begin(), writeMs.end());
    std::sort(transactionMs.begin(), transactionMs.end());
    std::printf("median write %.0f ms, of which the transaction %.0f ms\n", writeMs[1], transactionMs[1]);
    return 0;
}
