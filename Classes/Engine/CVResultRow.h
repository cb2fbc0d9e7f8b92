#pragma once

#include <QList>
#include <QString>

class CVTrack;

enum class CVResultIcon { FullSuccess, LinkSuccess, Fail, Skip };

// One outcome of a run: the track and what became of it.
struct CVResultRow {
    QString persistentID;
    CVResultIcon icon = CVResultIcon::Fail;
    CVTrack *track = nullptr;
    QString message;
    // The track ended where the run was asked to put it (already being there counts).
    bool inPlace = false;
};

// A row as the results list shows it, with the keys it sorts by.
struct CVShownResultRow {
    CVTrack *trackObject = nullptr;
    CVResultIcon icon = CVResultIcon::Fail;
    QString title; // the track's display title
    QString message;
    int sortResult = 3; // 1 full success, 2 dependent, 3 failed, 4 skipped
    QString sortArtist;
    QString sortAlbum;
    qint64 trackNumber = 0;
    QString sortName;
    bool inPlace = false;
};

// What a finished run shows.
struct CVRunResults {
    QList<CVShownResultRow> rows; // sorted as the results list shows them
    QString headline;
    QString tally;
    bool restore = false;
    int successes = 0;
    int dependents = 0;
    int skips = 0;
    int failures = 0;
    // Every track ended where the run was asked to put it.
    bool allInPlace = true;
};
