#pragma once

#include <QDateTime>
#include <QNetworkReply>
#include <QObject>
#include <QPointer>
#include <QString>
#include <QTimer>
#include <QUrl>

#include <optional>

class CVSettings;
class QNetworkAccessManager;

// Checks an appcast feed (RSS with the update frameworks' sparkle: elements) for a newer version:
// by hand ("Check for Updates…"), and on a schedule while "SUEnableAutomaticChecks" is on, every
// "SUScheduledCheckInterval" seconds after "SULastCheckTime". The feed is "SUFeedURL", set when the
// program is built; without one nothing is ever fetched. Nothing is downloaded or installed: a newer
// version is offered with its release notes, and the distribution's packages do the rest.
class CVUpdateChecker : public QObject {
    Q_OBJECT
public:
    struct Release {
        QString title;
        QString version; // the build version that is compared
        QString shortVersion; // the version shown
        QUrl releaseNotes;
        QUrl download;
    };
    enum class Outcome { UpdateAvailable, UpToDate, Failed };
    struct Result {
        Outcome outcome = Outcome::Failed;
        std::optional<Release> newest;
        QString message; // one sentence for the user
        bool userInitiated = false;
    };

    CVUpdateChecker(CVSettings *settings, const QString &currentVersion, QObject *parent = nullptr);
    ~CVUpdateChecker() override;

    // The feed this build checks, or an empty URL when it checks none.
    QUrl feedUrl() const;
    static QUrl builtInFeedUrl();
    void setTimeout(int milliseconds) { m_timeoutMs = milliseconds; }

    void checkForUpdates(bool userInitiated);
    bool isChecking() const { return m_reply; }
    // Arms the schedule from the settings (and again whenever the checks' settings change).
    void startScheduling();
    // When the next automatic check is due (invalid when none is scheduled).
    QDateTime nextCheck() const { return m_nextCheck; }

    static std::optional<QList<Release>> parseAppcast(const QByteArray &xml, QString *error = nullptr);
    // <0, 0, >0 as a is older than, the same as, newer than b: "1.10" > "1.9", "2.0b1" < "2.0".
    static int compareVersions(const QString &a, const QString &b);

Q_SIGNALS:
    void checkFinished(const CVUpdateChecker::Result &result);

private:
    void finished();
    void schedule();

    CVSettings *m_settings;
    QString m_currentVersion;
    QNetworkAccessManager *m_network;
    QPointer<QNetworkReply> m_reply;
    bool m_userInitiated = false;
    int m_timeoutMs = 30000;
    QTimer m_timer;
    QDateTime m_nextCheck;
};

Q_DECLARE_METATYPE(CVUpdateChecker::Result)
