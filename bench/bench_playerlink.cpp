// The library-file player link at scale: 10,000 new locations journaled and then written into
// a copy of a 100,000-track library file (what "quit" does), three times.
#include "Engine/CVLibraryFilePlayerLink.h"
#include "Library/CVLibraryFileReader.h"

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
    if (argc < 2) {
        std::fprintf(stderr, "usage: bench_playerlink LIBRARY-FILE [CHANGES]\n");
        return 2;
    }
    QCoreApplication app(argc, argv);
    const QString source = QString::fromLocal8Bit(argv[1]);
    const int changes = argc > 2 ? std::atoi(argv[2]) : 10000;
    CVLibraryContents contents;
    CVLibraryFileReader reader;
    if (!reader.readFile(source, contents)) {
        std::fprintf(stderr, "%s\n", qPrintable(reader.errorString()));
        return 1;
    }
    QStringList pids;
    for (const CVTrack &track : contents.tracks) {
        if (track.text(CVAttr::Location).startsWith(u'/'))
            pids.append(track.text(CVAttr::PersistentID));
    }
    const int step = std::max<qsizetype>(1, pids.size() / changes);

    QTemporaryDir dir;
    std::vector<double> journalMs;
    std::vector<double> applyMs;
    for (int round = 0; round < 3; ++round) {
        const QString library = dir.filePath(u"iTunes Library.xml"_s);
        QFile::remove(library);
        if (!QFile::copy(source, library))
            return 1;
        CVLibraryFilePlayerLink link(library, dir.path(), nullptr);
        QElapsedTimer timer;
        timer.start();
        int n = 0;
        for (qsizetype i = 0; i < pids.size() && n < changes; i += step, ++n)
            link.setTrackLocation(
                pids[i], u"/Volumes/Span/Music/Artist "_s + QString::number(i) + u"/Album/Track.mp3"_s);
        journalMs.push_back(double(timer.nsecsElapsed()) / 1e6);
        timer.restart();
        QString error;
        if (!link.applyJournal(&error)) {
            std::fprintf(stderr, "%s\n", qPrintable(error));
            return 1;
        }
        applyMs.push_back(double(timer.nsecsElapsed()) / 1e6);
        if (round == 0) {
            CVLibraryContents after;
            if (!CVLibraryFileReader().readFile(library, after) || after.tracks.size() != contents.tracks.size()) {
                std::fprintf(stderr, "the rewritten library does not read back\n");
                return 1;
            }
        }
        std::printf("round %d: %d changes journaled in %.0f ms, written into %lld tracks (%.0f MB) in %.0f ms\n",
            round + 1, n, journalMs.back(), qlonglong(contents.tracks.size()), double(QFile(source).size()) / 1e6,
            applyMs.back());
    }
    std::sort(applyMs.begin(), applyMs.end());
    std::sort(journalMs.begin(), journalMs.end());
    std::printf("median: journal %.0f ms, library rewrite %.0f ms\n", journalMs[1], applyMs[1]);
    return 0;
}
