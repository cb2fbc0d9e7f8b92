#pragma once

#include "CVLibraryGenerator.h"

#include <QString>

// Writes Rhythmbox's library (rhythmdb.xml, and playlists.xml beside it) as Rhythmbox 3.4 lays
// it out: songs with and without a mountpoint (those on the second drive have one), names with
// letters outside ASCII (some as character references, as Rhythmbox writes them), "%", "#",
// spaces and quotes in their URIs, and every other entry type (radio, podcast feeds and posts,
// ignored files, import errors). Static, automatic and queue playlists. Deterministic for a seed.
struct CVRhythmboxGeneratorResult {
    int songs = 0;
    int otherEntries = 0;
    int playlists = 0; // records the reader makes (the play queue excluded)
    qint64 bytes = 0;
};

class CVRhythmboxGenerator {
public:
    // mediaRoot holds the songs' files ("<mediaRoot>/Music/..."); secondDrive about a tenth.
    explicit CVRhythmboxGenerator(CVLibraryGeneratorOptions options);
    bool write(const QString &databaseFile, CVRhythmboxGeneratorResult *result = nullptr);
    QString errorString() const { return m_error; }

private:
    CVLibraryGeneratorOptions m_options;
    QString m_error;
};
