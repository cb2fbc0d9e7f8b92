#pragma once

#include "CVLibraryGenerator.h"

#include <QString>

// Writes Strawberry's collection database as Strawberry lays it out, at schema version 15
// (Strawberry 1.0) or 23 (later columns and a unique place per song): songs in two collection
// folders (the second on the second drive), names outside ASCII and with "%", "#", "?", spaces
// and quotes in their URLs, play counts, skip counts and ratings, every folder in
// subdirectories with its mtime, and playlists of collection songs, of other items naming
// collection files, and of streams. Deterministic for a seed.
struct CVStrawberryGeneratorResult {
    int songs = 0;
    int playlists = 0;
    int playlistItems = 0;
};

class CVStrawberryGenerator {
public:
    CVStrawberryGenerator(CVLibraryGeneratorOptions options, int schemaVersion = 15);
    bool write(const QString &databaseFile, CVStrawberryGeneratorResult *result = nullptr);
    QString errorString() const { return m_error; }

private:
    CVLibraryGeneratorOptions m_options;
    int m_schema;
    QString m_error;
};
