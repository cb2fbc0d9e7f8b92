// libFuzzer target: file URLs of the library into paths, and a track's tags into its destination.
// Whatever the input: a decoded path is one absolute path without "." or ".." and survives the
// way back; a destination lies inside the span location, every name of it non-empty, not "." or
// "..", and at most 255 bytes.
#include "Engine/CVMediaSpanner.h"
#include "Engine/CVSpannerRunHost.h"
#include "Library/CVFileURL.h"
#include "Library/CVTrack.h"
#include "Platform/CVLog.h"

#include <QString>
#include <QStringList>

#include <cstddef>
#include <cstdint>
#include <cstdlib>

namespace {

struct Host : CVSpannerRunHost {
    QString spanLocation() const override { return QStringLiteral("/Span"); }
};

void require(bool condition)
{
    if (!condition)
        std::abort();
}

void checkDecodedPath(const char *data, std::size_t size)
{
    const std::optional<QString> path = CVFileURL::pathFromFileURL(std::string_view(data, size));
    if (!path)
        return;
    require(path->startsWith(u'/'));
    require(!path->contains(QChar(0)));
    for (const QString &name : path->split(u'/', Qt::SkipEmptyParts))
        require(name != QStringLiteral(".") && name != QStringLiteral(".."));
    const QByteArray back = CVFileURL::fileURLFromPath(*path);
    require(CVFileURL::pathFromFileURL(std::string_view(back.constData(), std::size_t(back.size()))) == path);
}

void checkDestination(const char *data, std::size_t size)
{
    // Fields separated by NUL bytes: the tags, then the file name.
    const QList<QByteArray> fields = QByteArray(data, qsizetype(size)).split('\0');
    static const CVAttr attributes[]
        = { CVAttr::MediaType, CVAttr::Artist, CVAttr::AlbumArtist, CVAttr::Album, CVAttr::Name, CVAttr::Show };
    CVTrack track;
    int i = 0;
    for (const CVAttr a : attributes) {
        if (i < fields.size())
            track.setText(a, QString::fromUtf8(fields[i]));
        ++i;
    }
    if (i < fields.size())
        track.setInteger(CVAttr::Compilation, fields[i].size() % 2);
    ++i;
    static Host host;
    static CVMediaSpanner spanner(nullptr, nullptr, nullptr);
    static const bool once = [] {
        spanner.setRunHost(&host);
        CVLog::setSink([](const QString &) {});
        return true;
    }();
    Q_UNUSED(once)
    const QString fileName = i < fields.size() ? QString::fromUtf8(fields[i]) : QString();
    const QString dest = spanner.createNewPathForItem(&track, fileName);
    require(dest.startsWith(QStringLiteral("/Span/")));
    const QStringList names = dest.mid(6).split(u'/');
    for (const QString &name : names) {
        require(!name.isEmpty() && name != QStringLiteral(".") && name != QStringLiteral(".."));
        require(name.toUtf8().size() <= 255);
        require(!name.contains(QChar(0)));
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    const char *text = reinterpret_cast<const char *>(data);
    checkDecodedPath(text, size);
    checkDestination(text, size);
    return 0;
}
