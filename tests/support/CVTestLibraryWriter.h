#pragma once

#include <QByteArray>
#include <QList>
#include <QString>

// A small library file written track by track, for tests that need exactly these names and
// tags (hostile names, case twins): each track's media file is written too, with bytes of its own.
class CVTestLibraryWriter {
public:
    struct Track {
        QString name;
        QString artist;
        QString album;
        QString path; // where its media file is written
        int trackNumber = 0;
    };

    void add(const Track &track) { m_tracks.append(track); }
    // The persistent ID the nth added track gets.
    static QString persistentID(int index);
    // Writes the media files and the library file; false with errorString() on failure.
    bool write(const QString &libraryFile, const QString &mediaFolder);
    QString errorString() const { return m_error; }

private:
    QList<Track> m_tracks;
    QString m_error;
};
