#pragma once

#include <QString>
#include <QVariant>
#include <QVariantMap>

#include <memory>

class QSettings;

// Corvana Helper's settings, shared by the helper and the main program: both processes read
// and write the same file, so every read looks at the file again and every write reaches it
// at once. Registered defaults live in memory only.
class CVHUserDefaults {
public:
    // The helper's bundle identifier and the settings file it names.
    static constexpr auto HelperIdentifier = "org.corvana.CorvanaHelper";

    // The one shared instance, bound to the helper's identifier, with the helper's defaults
    // registered.
    static CVHUserDefaults &standardUserDefaults();
    // The helper's keys and their defaults.
    static QVariantMap helperDefaults();
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

    void registerDefaults(const QVariantMap &defaults);

    // The stored value, else the registered default, else an invalid value.
    QVariant objectForKey(const QString &key);
    // Writes and flushes; nothing is written when the stored value is the same already.
    void setObject(const QVariant &value, const QString &key);
    void removeObjectForKey(const QString &key);
    qint64 integerForKey(const QString &key);
    bool boolForKey(const QString &key);
    void synchronize();
    // Every stored key with its value; defaults are not stored and not listed.
    QVariantMap dictionaryValue();

private:
    QString m_identifier;
    QVariantMap m_defaults;
    std::unique_ptr<QSettings> m_settings;
};
