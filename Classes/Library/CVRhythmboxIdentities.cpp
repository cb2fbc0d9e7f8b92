#include "Library/CVRhythmboxIdentities.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSet>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

// The first 8 bytes of the SHA-1, as 16 upper-case hexadecimal digits (one per song of a load).
QString hashID(QByteArrayView bytes)
{
    QCryptographicHash hash(QCryptographicHash::Sha1);
    hash.addData(bytes);
    const QByteArrayView digest = hash.resultView();
    static const char16_t hex[] = u"0123456789ABCDEF";
    QString id(16, Qt::Uninitialized);
    QChar *out = id.data();
    for (int i = 0; i < 8; ++i) {
        out[2 * i] = QChar(hex[quint8(digest[i]) >> 4]);
        out[2 * i + 1] = QChar(hex[quint8(digest[i]) & 15]);
    }
    return id;
}

} // namespace

CVRhythmboxIdentities::CVRhythmboxIdentities(const QString &supportFolder, const QString &databasePath)
{
    const QByteArray key
        = QCryptographicHash::hash(QFile::encodeName(databasePath), QCryptographicHash::Sha1).toHex().left(12);
    m_path = supportFolder + u"/Rhythmbox Identities "_s + QString::fromLatin1(key) + u".txt"_s;
}

QString CVRhythmboxIdentities::libraryPersistentID(const QString &databasePath)
{
    return hashID(QByteArray(QByteArray("rhythmdb:") + QFile::encodeName(QFileInfo(databasePath).absoluteFilePath())));
}

QString CVRhythmboxIdentities::derivedID(QByteArrayView uri, int attempt)
{
    if (attempt == 0)
        return hashID(uri);
    return hashID(QByteArray(uri.toByteArray() + '#' + QByteArray::number(attempt)));
}

bool CVRhythmboxIdentities::load(QString *error)
{
    m_byLocation.clear();
    m_latest.clear();
    QFile table(m_path);
    if (!table.open(QIODevice::ReadOnly)) {
        if (!table.exists())
            return true;
        if (error)
            *error = u"The table of Rhythmbox songs “%1” cannot be read: %2"_s.arg(m_path, table.errorString());
        return false;
    }
    const QByteArray bytes = table.readAll();
    qsizetype start = 0;
    for (;;) {
        const qsizetype end = bytes.indexOf('\n', start);
        if (end < 0)
            break; // a line cut short by a crash was never acted on
        const QByteArrayView line(bytes.constData() + start, end - start);
        start = end + 1;
        const qsizetype tab = line.indexOf('\t');
        if (tab <= 0 || tab + 1 >= line.size())
            continue;
        const QString pid = QString::fromLatin1(line.first(tab));
        const QByteArray uri = line.sliced(tab + 1).toByteArray();
        m_byLocation.insert(uri, pid);
        m_latest.insert(pid, uri);
    }
    return true;
}

std::vector<QString> CVRhythmboxIdentities::resolve(const std::vector<QByteArray> &uris) const
{
    std::vector<QString> ids(uris.size());
    QHash<QString, std::size_t> holder; // ID -> the song holding it
    holder.reserve(qsizetype(uris.size()));
    std::vector<std::size_t> displaced;
    for (std::size_t i = 0; i < uris.size(); ++i) {
        const auto known = m_byLocation.constFind(uris[i]);
        ids[i] = known != m_byLocation.cend() ? *known : derivedID(uris[i]);
        const auto taken = holder.constFind(ids[i]);
        if (taken == holder.cend()) {
            holder.insert(ids[i], i);
            continue;
        }
        // Two songs on one ID: the one at the ID's latest location keeps it.
        const QByteArray latest = m_latest.value(ids[i]);
        if (!latest.isEmpty() && uris[i] == latest) {
            displaced.push_back(*taken);
            holder[ids[i]] = i;
        } else {
            displaced.push_back(i);
        }
    }
    for (std::size_t i : displaced) {
        for (int attempt = 1;; ++attempt) {
            const QString id = derivedID(uris[i], attempt);
            if (!holder.contains(id) && !m_latest.contains(id)) {
                ids[i] = id;
                holder.insert(id, i);
                break;
            }
        }
    }
    return ids;
}

bool CVRhythmboxIdentities::record(const QString &persistentID, const QByteArray &uri, QString *error)
{
    if (persistentID.isEmpty() || uri.isEmpty() || uri.contains('\n') || uri.contains('\t'))
        return false;
    QDir().mkpath(QFileInfo(m_path).absolutePath());
    const QByteArray line = persistentID.toLatin1() + '\t' + uri + '\n';
    const int fd = ::open(QFile::encodeName(m_path).constData(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0600);
    if (fd < 0) {
        if (error)
            *error = QString::fromLocal8Bit(strerror(errno));
        return false;
    }
    // One write per line: once it returns, a crash of this process keeps it.
    const bool ok = ::write(fd, line.constData(), size_t(line.size())) == line.size();
    const int saved = errno;
    ::close(fd);
    if (!ok) {
        if (error)
            *error = QString::fromLocal8Bit(strerror(saved));
        return false;
    }
    m_byLocation.insert(uri, persistentID);
    m_latest.insert(persistentID, uri);
    return true;
}
