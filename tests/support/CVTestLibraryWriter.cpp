#include "CVTestLibraryWriter.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

using namespace Qt::StringLiterals;

namespace {

QByteArray escaped(const QString &text)
{
    return text.toHtmlEscaped().toUtf8();
}

QByteArray fileURL(const QString &path)
{
    return "file://localhost" + path.toUtf8().toPercentEncoding("/");
}

} // namespace

QString CVTestLibraryWriter::persistentID(int index)
{
    return u"%1"_s.arg(0xC0DE000000000000ULL + quint64(index), 16, 16, QLatin1Char('0')).toUpper();
}

bool CVTestLibraryWriter::write(const QString &libraryFile, const QString &mediaFolder)
{
    QByteArray xml = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\">\n<dict>\n"
                     "\t<key>Major Version</key><integer>1</integer>\n"
                     "\t<key>Music Folder</key><string>"
        + fileURL(mediaFolder + u'/')
        + "</string>\n"
          "\t<key>Library Persistent ID</key><string>5E5E5E5E5E5E5E5E</string>\n"
          "\t<key>Tracks</key>\n\t<dict>\n";
    for (int i = 0; i < m_tracks.size(); ++i) {
        const Track &t = m_tracks[i];
        // Bytes of its own for every file, so that a copy is always told from another file.
        QByteArray bytes(4096 + i * 37, '\0');
        for (qsizetype b = 0; b < bytes.size(); ++b)
            bytes[b] = char((b * 7 + i * 131 + 1) & 0xFF);
        QDir().mkpath(QFileInfo(t.path).path());
        QFile media(t.path);
        if (!media.open(QIODevice::WriteOnly) || media.write(bytes) != bytes.size()) {
            m_error = u"Cannot write %1: %2"_s.arg(t.path, media.errorString());
            return false;
        }
        const QByteArray id = QByteArray::number(100 + i);
        xml += "\t\t<key>" + id + "</key>\n\t\t<dict>\n\t\t\t<key>Track ID</key><integer>" + id
            + "</integer>\n\t\t\t<key>Name</key><string>" + escaped(t.name)
            + "</string>\n\t\t\t<key>Artist</key><string>" + escaped(t.artist)
            + "</string>\n\t\t\t<key>Album</key><string>" + escaped(t.album)
            + "</string>\n\t\t\t<key>Kind</key><string>AAC audio file</string>\n\t\t\t<key>Size</key><integer>"
            + QByteArray::number(bytes.size()) + "</integer>\n";
        if (t.trackNumber > 0)
            xml += "\t\t\t<key>Track Number</key><integer>" + QByteArray::number(t.trackNumber) + "</integer>\n";
        xml += "\t\t\t<key>Persistent ID</key><string>" + persistentID(i).toLatin1()
            + "</string>\n\t\t\t<key>Track Type</key><string>File</string>\n\t\t\t<key>Location</key><string>"
            + fileURL(t.path) + "</string>\n\t\t</dict>\n";
    }
    xml += "\t</dict>\n\t<key>Playlists</key>\n\t<array>\n\t</array>\n</dict>\n</plist>\n";
    QDir().mkpath(QFileInfo(libraryFile).path());
    QFile out(libraryFile);
    if (!out.open(QIODevice::WriteOnly) || out.write(xml) != xml.size()) {
        m_error = u"Cannot write %1"_s.arg(libraryFile);
        return false;
    }
    return true;
}
