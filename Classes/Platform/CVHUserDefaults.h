#pragma once

#include <QString>
#include <QVariant>
#include <QVariantMap>

#include <memory>
#include <span>

class QSettings;

// Every key of Corvana Helper's settings. Its text and default are in CVHUserDefaults::keyTable().
enum class CVHSettingsKey {
    ShowInMenubar,
    AllowedToAlwaysRun,
    LoginItemAlertSupress,
    NotNecessaryAlertSupress,
    TracksUnavailableWhenITunesLaunchesAlertSupress,
    TracksUnavailableWhenDrivesUnmountAlertSupress,
    TracksUnavailableWhenFilesMissingAlertSupress,
    HadDependentTracks,
    CorvanaApplication,
    Count
};

// Corvana Helper's settings, shared by the helper and the main program: both processes read
// and write the same file, so every read looks at the file again and every write reaches it
// at once. Defaults live in memory only.
class CVHUserDefaults {
public:
    // The helper's bundle identifier and the settings file it names.
    static constexpr auto HelperIdentifier = "org.corvana.CorvanaHelper";

    // The one shared instance, bound to the helper's identifier.
    static CVHUserDefaults &standardUserDefaults();
    struct KeyInfo {
        CVHSettingsKey key;
        QString name;
        QVariant defaultValue; // invalid: none
    };
    // One entry per key, in the order of CVHSettingsKey.
    static std::span<const KeyInfo> keyTable();
    static QString name(CVHSettingsKey key) { return keyTable()[std::size_t(key)].name; }
    // $XDG_CONFIG_HOME/Corvana/Corvana Helper.conf for the helper's identifier; another
    // identifier names "<identifier>.conf" beside it, an absolute path names that file.
    static QString filePathForIdentifier(const QString &identifier);

    explicit CVHUserDefaults(const QString &identifier = QString::fromLatin1(HelperIdentifier));
    ~CVHUserDefaults();
    CVHUserDefaults(const CVHUserDefaults &) = delete;
    CVHUserDefaults &operator=(const CVHUserDefaults &) = delete;

    QString identifier() const { return m_identifier; }
    void setIdentifier(const QString &identifier);
    QString filePath() const;

    // The stored value, else the key's default, else an invalid value.
    QVariant objectForKey(CVHSettingsKey key);
    // Writes and flushes; nothing is written when the stored value is the same already.
    void setObject(const QVariant &value, CVHSettingsKey key);
    void removeObjectForKey(CVHSettingsKey key);
    qint64 integerForKey(CVHSettingsKey key);
    bool boolForKey(CVHSettingsKey key);
    void synchronize();
    // Every stored key with its value; defaults are not stored and not listed.
    QVariantMap dictionaryValue();

private:
    QString m_identifier;
    std::unique_ptr<QSettings> m_settings;
};
