#pragma once

#include "Library/CVLibraryFileReader.h"

#include <QObject>

#include <memory>
#include <optional>
#include <vector>

class CVLibraryHost;
class CVPresenter;
class CVSettings;

// The player's library as Corvana holds it while running: rebuilt from the library file
// at every load, owned here, and handed around as lists of pointers into it.
class CVLibraryManager : public QObject {
    Q_OBJECT

public:
    enum class LoadResult { Loaded, Quit, Failed };

    explicit CVLibraryManager(CVSettings *settings, QObject *parent = nullptr);
    ~CVLibraryManager() override;

    void setPresenter(CVPresenter *presenter) { m_presenter = presenter; }
    void setHost(CVLibraryHost *host) { m_host = host; }
    // Reads this file instead of looking in the default places.
    void setLibraryFilePath(const QString &path) { m_fixedLibraryFile = path; }

    // The default library file under home, or an empty text when neither candidate exists.
    static QString chooseLibraryFile(const QString &homePath);

    LoadResult loadiTunesXMLDatabase();

    const std::vector<CVTrack *> &allTracks() const { return m_allTracks; }
    const std::vector<CVPlaylist> &playlists() const { return m_contents->playlists; }
    const std::optional<QString> &iTunesMediaPath() const { return m_iTunesMediaPath; }
    const std::optional<QString> &iTunesPersistentID() const { return m_contents->persistentID; }
    bool loadingDatabase() const { return m_loadingDatabase; }
    const QString &searchString() const { return m_searchString; }
    void setSearchString(const QString &text) { m_searchString = text; }
    // The file that the last load read, and why it failed when it did.
    QString libraryFilePath() const { return m_libraryFile; }
    QString lastError() const { return m_lastError; }

    static QString humanReadableSizeFromBytes(double bytes);
    static QString formatSampleRate(double hertz);
    static QString humanReadableTimeFromMilliseconds(double milliseconds, bool roundOffTime);
    static QString formatDate(qint64 secondsSinceEpoch);
    // key is a library-file key ("Album"); the track is a library-file track dictionary.
    static QString customSortStringForKey(const QString &key, const QVariantMap &fileTrack);
    QString createDisplayTitleForPath(const QString &path) const;

private:
    CVSettings *m_settings;
    CVPresenter *m_presenter = nullptr;
    CVLibraryHost *m_host = nullptr;
    QString m_fixedLibraryFile;
    QString m_libraryFile;
    QString m_lastError;

    std::unique_ptr<CVLibraryContents> m_contents;
    std::vector<CVTrack *> m_allTracks;
    std::optional<QString> m_iTunesMediaPath;
    bool m_loadingDatabase = true;
    QString m_searchString;
};
