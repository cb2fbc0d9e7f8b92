#pragma once

#include <QObject>
#include <QSettings>
#include <QVariant>

#include <memory>
#include <span>

namespace CVSettingsKeys {
Q_NAMESPACE

// Every key of the user's settings. Its text, type and default are in CVSettings::keyTable().
enum class Key {
    FirstRun,
    DidCrashLastRun,
    BrowserTopFrameHeight,
    BrowserTopFrameHeightBeforeSquishing,
    BrowserLeftFrameWidth,
    BrowserLeftFrameWidthBeforeSquishing,
    PlaylistsLeftFrameWidth,
    PlaylistsLeftFrameWidthBeforeSquishing,
    PlaylistsAreHidden,
    LocationsRightFrameWidth,
    LocationsRightFrameWidthBeforeSquishing,
    LocationsAreHidden,
    SUScheduledCheckInterval,
    SearchFields,
    DefaultBrowserMedia,
    RememberLastBrowserMedia,
    GroupCompilationsInBrowser,
    UseAlbumArtistsInBrowser,
    ColumnBrowserOnTop,
    CubeAnimateWindow,
    PlaySpanQueueDropSounds,
    AutosaveSpanningQueue,
    AutosaveSpanLocation,
    ClearSpanLocationAfterSpan,
    FullSpanReattempts,
    FilterPathOrder,
    StartupDriveName,
    WindowsFileNames,
    Player,
    RelaunchPlayerAfterRun,
    SUEnableAutomaticChecks,
    SUFeedURL,
    SULastCheckTime,
    IsSpanning,
    LastSpanLocation,
    LastTracksSpanned,
    SavedSpanningQueue,
    SavedSpanLocation,
    SpanLocationHistory,
    ExpandedLocations,
    CollapsedPlaylistFolders,
    TrackListSmartColumnPosition,
    TrackListSmartColumnWidth,
    TrackListSmartColumnWidthBeforeSquishing,
    VersionLastRun,
    UserClickedDonate,
    MainWindowFrame,
    AboutWindowFrame,
    HelpWindowFrame,
    ColumnDisplayOptionsWindowFrame,
    TrackInformationWindowFrame,
    PlaylistTrackListColumns,
    PlaylistTrackListHiddenColumns,
    PlaylistTrackListSortOrdering,
    Count
};
Q_ENUM_NS(Key)

} // namespace CVSettingsKeys

using CVSettingsKey = CVSettingsKeys::Key;

// The user's settings: a QSettings INI file read and written only through the keys above.
// A key's default is what it reads while no value is stored; it is never written.
// The typed readers convert: after a restart QSettings hands back every scalar as text.
class CVSettings : public QObject {
    Q_OBJECT

public:
    enum class Type { Bool, Integer, Real, String, StringList, Map, Data };
    struct KeyInfo {
        CVSettingsKey key;
        QString name;
        Type type;
        QVariant defaultValue; // invalid: none, the key reads as false, 0 or empty
    };
    // One entry per key, in the order of CVSettingsKey.
    static std::span<const KeyInfo> keyTable();
    static const KeyInfo &info(CVSettingsKey key) { return keyTable()[std::size_t(key)]; }
    static QString name(CVSettingsKey key) { return info(key).name; }

    // The conversions of the typed readers, for other stores of the same file format.
    static bool toBool(const QVariant &value);
    static qint64 toInteger(const QVariant &value);

    // $XDG_CONFIG_HOME/Corvana/Corvana.conf
    static QString defaultFilePath();

    explicit CVSettings(const QString &filePath = defaultFilePath(), QObject *parent = nullptr);
    ~CVSettings() override;

    // The repairs that every launch makes, and the removal of keys of earlier versions.
    void applyLaunchRepairs();

    bool contains(CVSettingsKey key) const; // a value of the user's own is stored
    QStringList storedKeys() const;
    QVariant value(CVSettingsKey key) const; // the stored value, else the default
    bool boolValue(CVSettingsKey key) const;
    qint64 integerValue(CVSettingsKey key) const;
    double realValue(CVSettingsKey key) const;
    QString stringValue(CVSettingsKey key) const;
    QStringList stringListValue(CVSettingsKey key) const;
    QVariantMap mapValue(CVSettingsKey key) const;
    QByteArray dataValue(CVSettingsKey key) const;

    void setValue(CVSettingsKey key, const QVariant &value);
    // A value for this run only, read before the stored one and never written.
    void setTransientValue(CVSettingsKey key, const QVariant &value);
    void remove(CVSettingsKey key);
    // Writes the file now, atomically; for the values that must survive a crash.
    void synchronize();

    QString filePath() const;

    // Calls `listener` after every change of `key`, for as long as `context` lives.
    template<typename Listener>
    QMetaObject::Connection observe(CVSettingsKey key, const QObject *context, Listener listener)
    {
        return connect(this, &CVSettings::valueChanged, context, [key, listener](CVSettingsKey changed) {
            if (changed == key)
                listener();
        });
    }

Q_SIGNALS:
    void valueChanged(CVSettingsKey key);

private:
    void removeObsolete(const QString &name);

    std::unique_ptr<QSettings> m_settings;
    QMap<CVSettingsKey, QVariant> m_transient;
};
