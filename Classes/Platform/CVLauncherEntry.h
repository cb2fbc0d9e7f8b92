#pragma once

#include <QString>
#include <QVariantMap>

// The program's entry on the desktop's task bar or dock: a run's progress shown over its icon,
// through the com.canonical.Unity.LauncherEntry "Update" signal on the session bus, which KDE
// Plasma's task manager, Ubuntu's dock and others read. Without a session bus nothing happens.
class CVLauncherEntry {
public:
    static constexpr auto ObjectPath = "/org/corvana/Corvana/LauncherEntry";
    static constexpr auto Interface = "com.canonical.Unity.LauncherEntry";

    explicit CVLauncherEntry(const QString &desktopFileName = QStringLiteral("org.corvana.Corvana.desktop"));

    // A fraction from 0 to 1. Repeats that would not show (less than half a percent) are not sent.
    void setProgress(double fraction);
    void hideProgress();
    bool isProgressVisible() const { return m_visible; }
    QString applicationUri() const { return m_uri; }

private:
    void send(const QVariantMap &properties);

    QString m_uri;
    bool m_visible = false;
    double m_sent = -1;
};
