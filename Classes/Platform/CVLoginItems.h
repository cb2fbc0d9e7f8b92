#pragma once

#include <QString>
#include <QStringList>

// The session's login items: XDG autostart entries in $XDG_CONFIG_HOME/autostart. An entry
// belongs to a program when the first word of its Exec line begins with the program's path.
class CVLoginItems {
public:
    // The entry Corvana writes for the helper.
    static constexpr auto HelperEntryName = "org.corvana.CorvanaHelper.desktop";

    explicit CVLoginItems(const QString &entryName = QString::fromLatin1(HelperEntryName));

    static QString autostartFolder();

    bool inLoginItems(const QString &path) const;
    // Writes the entry (at the end of the list: other entries are left as they are).
    bool addToLoginItems(const QString &path, const QString &displayName = QStringLiteral("Corvana Helper"));
    // Removes every entry of the user's autostart folder that starts the program.
    bool removeFromLoginItems(const QString &path);

    // The Exec line of a desktop entry for these arguments, quoted and escaped as the desktop
    // entry format wants, and the reverse.
    static QString execLine(const QStringList &arguments);
    static QStringList parseExecLine(const QString &value);

private:
    QStringList matchingEntries(const QString &path) const;

    QString m_entryName;
};
