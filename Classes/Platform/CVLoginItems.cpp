#include "Platform/CVLoginItems.h"

#include <QDir>
#include <QFile>
#include <QSaveFile>
#include <QStandardPaths>

using namespace Qt::StringLiterals;

namespace {

// Reads the Exec key of the [Desktop Entry] group, undoing the string escapes of the format.
QString execValue(const QString &file)
{
    QFile entry(file);
    if (!entry.open(QIODevice::ReadOnly | QIODevice::Text))
        return {};
    bool inMainGroup = false;
    while (!entry.atEnd()) {
        const QString line = QString::fromUtf8(entry.readLine()).trimmed();
        if (line.startsWith(u'[')) {
            inMainGroup = line == u"[Desktop Entry]"_s;
            continue;
        }
        if (!inMainGroup || !line.startsWith(u"Exec"_s))
            continue;
        const qsizetype equals = line.indexOf(u'=');
        if (equals < 0 || line.left(equals).trimmed() != u"Exec"_s)
            continue;
        const QString raw = line.mid(equals + 1).trimmed();
        QString value;
        for (qsizetype i = 0; i < raw.size(); ++i) {
            if (raw[i] == u'\\' && i + 1 < raw.size()) {
                const QChar next = raw[++i];
                value += next == u's' ? u' '
                    : next == u'n'    ? u'\n'
                    : next == u't'    ? u'\t'
                    : next == u'r'    ? u'\r'
                                      : next;
            } else {
                value += raw[i];
            }
        }
        return value;
    }
    return {};
}

} // namespace

CVLoginItems::CVLoginItems(const QString &entryName)
    : m_entryName(entryName)
{
}

QString CVLoginItems::autostartFolder()
{
    return QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation) + u"/autostart"_s;
}

QString CVLoginItems::execLine(const QStringList &arguments)
{
    // Quoting rules first (inside double quotes, " ` $ \ take a backslash), then the string
    // escape of the file format doubles every backslash; "%" is written "%%".
    QStringList words;
    for (QString argument : arguments) {
        argument.replace(u'%', u"%%"_s);
        static const QString reserved = u" \t\n\"'\\><~|&;$*?#()`="_s;
        const bool quote = argument.isEmpty()
            || std::any_of(argument.cbegin(), argument.cend(), [](QChar c) { return reserved.contains(c); });
        if (quote) {
            QString quoted;
            for (const QChar c : std::as_const(argument)) {
                if (c == u'"' || c == u'`' || c == u'$' || c == u'\\')
                    quoted += u'\\';
                quoted += c;
            }
            argument = u'"' + quoted + u'"';
        }
        words.append(argument);
    }
    QString line = words.join(u' ');
    line.replace(u'\\', u"\\\\"_s);
    line.replace(u'\n', u"\\n"_s);
    return line;
}

QStringList CVLoginItems::parseExecLine(const QString &value)
{
    QStringList arguments;
    QString current;
    bool inWord = false;
    bool quoted = false;
    for (qsizetype i = 0; i < value.size(); ++i) {
        const QChar c = value[i];
        if (c == u'%' && i + 1 < value.size() && value[i + 1] == u'%') {
            current += u'%';
            ++i;
            inWord = true;
            continue;
        }
        if (quoted) {
            if (c == u'\\' && i + 1 < value.size()) {
                current += value[++i];
            } else if (c == u'"') {
                quoted = false;
            } else {
                current += c;
            }
            continue;
        }
        if (c == u'"') {
            quoted = true;
            inWord = true;
        } else if (c == u' ' || c == u'\t') {
            if (inWord)
                arguments.append(current);
            current.clear();
            inWord = false;
        } else {
            current += c;
            inWord = true;
        }
    }
    if (inWord)
        arguments.append(current);
    return arguments;
}

QStringList CVLoginItems::matchingEntries(const QString &path) const
{
    QStringList matches;
    const QDir folder(autostartFolder());
    for (const QString &name : folder.entryList({ u"*.desktop"_s }, QDir::Files)) {
        const QStringList exec = parseExecLine(execValue(folder.filePath(name)));
        if (!exec.isEmpty() && exec.first().startsWith(path))
            matches.append(folder.filePath(name));
    }
    return matches;
}

bool CVLoginItems::inLoginItems(const QString &path) const
{
    return !matchingEntries(path).isEmpty();
}

bool CVLoginItems::addToLoginItems(const QString &path, const QString &displayName)
{
    if (!QDir().mkpath(autostartFolder()))
        return false;
    QString name = displayName;
    name.replace(u'\\', u"\\\\"_s).replace(u'\n', u' ');
    const QString text = u"[Desktop Entry]\n"
                         "Type=Application\n"
                         "Version=1.0\n"
                         "Name=%1\n"
                         "Comment=Keeps the player's links to spanned tracks in order\n"
                         "Exec=%2\n"
                         "Terminal=false\n"
                         "NoDisplay=true\n"
                         "X-GNOME-Autostart-enabled=true\n"_s.arg(name, execLine({ path }));
    QSaveFile file(autostartFolder() + u'/' + m_entryName);
    if (!file.open(QIODevice::WriteOnly))
        return false;
    file.write(text.toUtf8());
    return file.commit();
}

bool CVLoginItems::removeFromLoginItems(const QString &path)
{
    bool ok = true;
    for (const QString &entry : matchingEntries(path))
        ok = QFile::remove(entry) && ok;
    return ok;
}
