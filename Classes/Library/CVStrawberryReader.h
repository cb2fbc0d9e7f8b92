#pragma once

#include "Library/CVLibraryFileReader.h"

// Turns Strawberry's collection database into track and playlist records. Every song with a
// file URL is a track; its TrackID is its ROWID and its PersistentID the same number in
// hexadecimal, which a span does not change (the link rewrites the song's row in place).
// Playlists list their collection songs and their other items that name a collection file.
class CVStrawberryReader {
public:
    using Options = CVLibraryFileReader::Options;

    explicit CVStrawberryReader(Options options = {});

    // Opens the database read-only; refuses a schema version Corvana does not know.
    bool readFile(const QString &path, CVLibraryContents &out);
    QString errorString() const { return m_error; }

private:
    Options m_options;
    QString m_error;
};
