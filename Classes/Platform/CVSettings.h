#pragma once

#include <QObject>
#include <QSettings>
#include <QVariant>

#include <memory>

// The user's settings: a QSettings INI file with the registered defaults held in memory.
// A default is what a key reads while no value is stored; it is never written.
// The typed readers convert: after a restart QSettings hands back every scalar as text.
class CVSettings : public QObject {
    Q_OBJECT

public:
    // $XDG_CONFIG_HOME/Corvana/Corvana.conf
    static QString defaultFilePath();

    explicit CVSettings(const QString &filePath = defaultFilePath(), QObject *parent = nullptr);
    ~CVSettings() override;

    // The application's table of defaults, then the repairs that every launch makes.
    void registerStandardDefaults();
    void registerDefaults(const QVariantMap &defaults);
    void applyLaunchRepairs();

    bool contains(const QString &key) const; // a value of the user's own is stored
    QStringList storedKeys() const;
    QVariant value(const QString &key) const; // the stored value, else the default
    bool boolValue(const QString &key) const;
    qint64 integerValue(const QString &key) const;
    double realValue(const QString &key) const;
    QString stringValue(const QString &key) const;
    QStringList stringListValue(const QString &key) const;
    QVariantMap mapValue(const QString &key) const;
    QByteArray dataValue(const QString &key) const;

    void setValue(const QString &key, const QVariant &value);
    // A value for this run only, read before the stored one and never written.
    void setTransientValue(const QString &key, const QVariant &value) { m_transient.insert(key, value); }
    void remove(const QString &key);
    // Writes the file now, atomically; for the values that must survive a crash.
    void synchronize();

    QString filePath() const;

Q_SIGNALS:
    void valueChanged(const QString &key);

private:
    std::unique_ptr<QSettings> m_settings;
    QVariantMap m_defaults;
    QVariantMap m_transient;
};
