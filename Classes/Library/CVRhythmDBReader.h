#pragma once

#include "Library/CVLibraryFileReader.h"

class CVRhythmboxIdentities;

// Turns Rhythmbox's rhythmdb.xml (and the static playlists of playlists.xml beside it) into
// track and playlist records. Only song entries are tracks; every other entry type is left to
// Rhythmbox. A song's TrackID is its place in the file; its PersistentID comes from the table
// of identities, so that it stays the same when a span moves the song.
class CVRhythmDBReader {
public:
    using Options = CVLibraryFileReader::Options;

    CVRhythmDBReader(const CVRhythmboxIdentities &identities, Options options = {});

    // Reads the file at its path; playlists.xml is looked for beside it.
    bool readFile(const QString &path, CVLibraryContents &out);
    // A document in memory, with playlists.xml's text when there is one.
    bool readDocument(
        QByteArrayView document, QByteArrayView playlists, const QString &libraryPersistentID, CVLibraryContents &out);

    // "line L, column C: what was wrong", or why the file could not be read.
    QString errorString() const { return m_error; }

private:
    bool readPlaylists(QByteArrayView document, const QHash<QByteArray, qint64> &trackIDs, CVLibraryContents &out);

    const CVRhythmboxIdentities &m_identities;
    Options m_options;
    QString m_error;
};
