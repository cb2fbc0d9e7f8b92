#include "Views/CVIcons.h"

#include <QGuiApplication>
#include <QHash>
#include <QIconEngine>
#include <QPainter>
#include <QPainterPath>
#include <QPalette>

using namespace Qt::StringLiterals;

namespace {

// Draws one kind into a square of side 1 (the painter is scaled to the icon's size).
void draw(QPainter &p, CVIcons::Kind kind, const QPalette &palette, QIcon::Mode mode)
{
    using K = CVIcons::Kind;
    const QColor ink = mode == QIcon::Disabled ? palette.color(QPalette::Disabled, QPalette::WindowText)
                                               : palette.color(QPalette::Active, QPalette::WindowText);
    const QColor accent = mode == QIcon::Disabled ? ink : QColor(0x3d, 0x7c, 0xc9);
    const QColor paper = palette.color(QPalette::Base);
    QPen pen(ink, 0.06);
    pen.setJoinStyle(Qt::RoundJoin);
    pen.setCapStyle(Qt::RoundCap);
    p.setPen(pen);
    switch (kind) {
    case K::Application:
    case K::SpanLocation: {
        // Two stacked discs with an arrow between them: files spread over drives.
        p.setBrush(accent);
        p.drawRoundedRect(QRectF(0.1, 0.12, 0.8, 0.3), 0.08, 0.08);
        p.setBrush(accent.lighter(140));
        p.drawRoundedRect(QRectF(0.1, 0.58, 0.8, 0.3), 0.08, 0.08);
        p.setBrush(paper);
        p.drawEllipse(QPointF(0.78, 0.27), 0.05, 0.05);
        p.drawEllipse(QPointF(0.78, 0.73), 0.05, 0.05);
        break;
    }
    case K::Drive:
    case K::StartupDrive: {
        p.setBrush(kind == K::StartupDrive ? ink.lighter(180) : accent.lighter(150));
        p.drawRoundedRect(QRectF(0.08, 0.3, 0.84, 0.42), 0.08, 0.08);
        p.setBrush(accent);
        p.drawEllipse(QPointF(0.76, 0.51), 0.05, 0.05);
        p.drawLine(QPointF(0.2, 0.51), QPointF(0.55, 0.51));
        break;
    }
    case K::Folder:
    case K::PlaylistFolder: {
        QPainterPath path;
        path.moveTo(0.08, 0.25);
        path.lineTo(0.38, 0.25);
        path.lineTo(0.46, 0.34);
        path.lineTo(0.92, 0.34);
        path.lineTo(0.92, 0.82);
        path.lineTo(0.08, 0.82);
        path.closeSubpath();
        p.setBrush(kind == K::Folder ? accent.lighter(160) : ink.lighter(200));
        p.drawPath(path);
        break;
    }
    case K::File:
    case K::Playlist: {
        QPainterPath page;
        page.moveTo(0.22, 0.08);
        page.lineTo(0.62, 0.08);
        page.lineTo(0.8, 0.26);
        page.lineTo(0.8, 0.92);
        page.lineTo(0.22, 0.92);
        page.closeSubpath();
        p.setBrush(paper);
        p.drawPath(page);
        // A note on the page.
        p.setBrush(ink);
        p.drawEllipse(QPointF(0.44, 0.72), 0.07, 0.06);
        p.drawLine(QPointF(0.5, 0.72), QPointF(0.5, 0.4));
        p.drawLine(QPointF(0.5, 0.4), QPointF(0.64, 0.46));
        break;
    }
    case K::SmartPlaylist:
    case K::GeniusPlaylist: {
        p.setBrush(kind == K::SmartPlaylist ? accent.lighter(150) : QColor(0x8e, 0x5c, 0xc6));
        p.drawRoundedRect(QRectF(0.12, 0.12, 0.76, 0.76), 0.15, 0.15);
        p.setPen(QPen(paper, 0.08, Qt::SolidLine, Qt::RoundCap));
        for (int i = 0; i < 3; ++i)
            p.drawLine(QPointF(0.28, 0.32 + 0.18 * i), QPointF(0.72, 0.32 + 0.18 * i));
        break;
    }
    case K::Search: {
        p.setBrush(Qt::NoBrush);
        p.setPen(QPen(ink, 0.1, Qt::SolidLine, Qt::RoundCap));
        p.drawEllipse(QPointF(0.42, 0.42), 0.24, 0.24);
        p.drawLine(QPointF(0.6, 0.6), QPointF(0.86, 0.86));
        break;
    }
    case K::QuestionMark: {
        p.setBrush(accent.lighter(160));
        p.drawEllipse(QRectF(0.08, 0.08, 0.84, 0.84));
        QFont font = QGuiApplication::font();
        font.setPixelSize(1);
        font.setBold(true);
        p.save();
        p.scale(0.01, 0.01);
        font.setPixelSize(70);
        p.setFont(font);
        p.setPen(ink);
        p.drawText(QRectF(0, 0, 100, 100), Qt::AlignCenter, u"?"_s);
        p.restore();
        break;
    }
    case K::Queue: {
        p.setBrush(accent.lighter(160));
        p.drawRoundedRect(QRectF(0.1, 0.3, 0.8, 0.55), 0.1, 0.1);
        p.setPen(QPen(ink, 0.09, Qt::SolidLine, Qt::RoundCap));
        p.drawLine(QPointF(0.5, 0.08), QPointF(0.5, 0.55));
        p.drawLine(QPointF(0.35, 0.42), QPointF(0.5, 0.57));
        p.drawLine(QPointF(0.65, 0.42), QPointF(0.5, 0.57));
        break;
    }
    case K::Information: {
        p.setBrush(accent);
        p.drawEllipse(QRectF(0.08, 0.08, 0.84, 0.84));
        p.setPen(QPen(paper, 0.11, Qt::SolidLine, Qt::RoundCap));
        p.drawPoint(QPointF(0.5, 0.3));
        p.drawLine(QPointF(0.5, 0.45), QPointF(0.5, 0.72));
        break;
    }
    case K::ResultFullSuccess:
    case K::ResultLinkSuccess:
    case K::ResultSkip:
    case K::ResultFail: {
        // A disc in the outcome's colour with its mark: check, linked check, skip arrows, cross.
        const QColor colour = mode == QIcon::Disabled ? ink
            : kind == K::ResultFullSuccess            ? QColor(0x2e, 0x9e, 0x4f)
            : kind == K::ResultLinkSuccess            ? QColor(0x3d, 0x7c, 0xc9)
            : kind == K::ResultSkip                   ? QColor(0xd8, 0x95, 0x1c)
                                                      : QColor(0xd0, 0x36, 0x30);
        p.setPen(Qt::NoPen);
        p.setBrush(colour);
        p.drawEllipse(QRectF(0.06, 0.06, 0.88, 0.88));
        p.setPen(QPen(Qt::white, 0.1, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
        p.setBrush(Qt::NoBrush);
        if (kind == K::ResultFullSuccess) {
            p.drawPolyline(QPolygonF({ QPointF(0.3, 0.52), QPointF(0.44, 0.66), QPointF(0.71, 0.36) }));
        } else if (kind == K::ResultLinkSuccess) {
            p.setPen(QPen(Qt::white, 0.08, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
            p.drawRoundedRect(QRectF(0.22, 0.42, 0.32, 0.18), 0.09, 0.09);
            p.drawRoundedRect(QRectF(0.46, 0.42, 0.32, 0.18), 0.09, 0.09);
        } else if (kind == K::ResultSkip) {
            p.drawPolyline(QPolygonF({ QPointF(0.28, 0.32), QPointF(0.46, 0.5), QPointF(0.28, 0.68) }));
            p.drawPolyline(QPolygonF({ QPointF(0.5, 0.32), QPointF(0.68, 0.5), QPointF(0.5, 0.68) }));
        } else {
            p.drawLine(QPointF(0.34, 0.34), QPointF(0.66, 0.66));
            p.drawLine(QPointF(0.66, 0.34), QPointF(0.34, 0.66));
        }
        break;
    }
    case K::TrashFull: {
        // A bin with papers over its rim.
        p.setBrush(paper);
        p.drawRect(QRectF(0.3, 0.14, 0.22, 0.2));
        p.drawRect(QRectF(0.46, 0.1, 0.2, 0.24));
        p.setBrush(ink.lighter(220));
        QPainterPath bin;
        bin.moveTo(0.2, 0.3);
        bin.lineTo(0.8, 0.3);
        bin.lineTo(0.72, 0.92);
        bin.lineTo(0.28, 0.92);
        bin.closeSubpath();
        p.drawPath(bin);
        p.drawLine(QPointF(0.42, 0.42), QPointF(0.44, 0.82));
        p.drawLine(QPointF(0.58, 0.42), QPointF(0.56, 0.82));
        break;
    }
    }
}

class PaintedIconEngine : public QIconEngine {
public:
    explicit PaintedIconEngine(CVIcons::Kind kind, bool badge = false)
        : m_kind(kind)
        , m_badge(badge)
    {
    }
    void paint(QPainter *painter, const QRect &rect, QIcon::Mode mode, QIcon::State) override
    {
        painter->save();
        painter->setRenderHint(QPainter::Antialiasing);
        painter->translate(rect.topLeft());
        const qreal side = qMin(rect.width(), rect.height());
        painter->translate((rect.width() - side) / 2, (rect.height() - side) / 2);
        painter->scale(side, side);
        draw(*painter, m_kind, QGuiApplication::palette(), mode);
        if (m_badge) {
            painter->setPen(Qt::NoPen);
            painter->setBrush(QColor(0xd0, 0x30, 0x30));
            painter->drawEllipse(QRectF(0.5, 0.5, 0.48, 0.48));
            painter->setPen(QPen(Qt::white, 0.08, Qt::SolidLine, Qt::RoundCap));
            painter->drawLine(QPointF(0.64, 0.64), QPointF(0.84, 0.84));
            painter->drawLine(QPointF(0.84, 0.64), QPointF(0.64, 0.84));
        }
        painter->restore();
    }
    QPixmap pixmap(const QSize &size, QIcon::Mode mode, QIcon::State state) override
    {
        return scaledPixmap(size, mode, state, 1.0);
    }
    QPixmap scaledPixmap(const QSize &size, QIcon::Mode mode, QIcon::State state, qreal scale) override
    {
        QPixmap pixmap(size * scale);
        pixmap.setDevicePixelRatio(scale);
        pixmap.fill(Qt::transparent);
        QPainter painter(&pixmap);
        paint(&painter, QRect(QPoint(), size), mode, state);
        return pixmap;
    }
    QIconEngine *clone() const override { return new PaintedIconEngine(m_kind, m_badge); }
    QString key() const override { return u"CVPainted"_s; }

private:
    CVIcons::Kind m_kind;
    bool m_badge;
};

QString themeName(CVIcons::Kind kind)
{
    using K = CVIcons::Kind;
    switch (kind) {
    case K::Application:
        return u"org.corvana.Corvana"_s;
    case K::Drive:
        return u"drive-harddisk"_s;
    case K::StartupDrive:
        return u"computer"_s;
    case K::Folder:
        return u"folder"_s;
    case K::File:
        return u"audio-x-generic"_s;
    case K::Playlist:
        return u"view-media-playlist"_s;
    case K::PlaylistFolder:
        return u"folder-music"_s;
    case K::SmartPlaylist:
        return u"view-media-playlist"_s;
    case K::GeniusPlaylist:
        return u"view-media-playlist"_s;
    case K::Search:
        return u"edit-find"_s;
    case K::QuestionMark:
        return u"dialog-question"_s;
    case K::SpanLocation:
        return u"folder-remote"_s;
    case K::Queue:
        return u"go-down"_s;
    case K::Information:
        return u"dialog-information"_s;
    case K::TrashFull:
        return u"user-trash-full"_s;
    case K::ResultFullSuccess:
    case K::ResultLinkSuccess:
    case K::ResultSkip:
    case K::ResultFail:
        break;
    }
    return {};
}

} // namespace

QIcon CVIcons::fallback(Kind kind)
{
    return QIcon(new PaintedIconEngine(kind));
}

QIcon CVIcons::icon(Kind kind)
{
    const QString name = themeName(kind);
    return name.isEmpty() ? fallback(kind) : QIcon::fromTheme(name, fallback(kind));
}

QIcon CVIcons::named(const QString &name)
{
    if (name == u"TrashFull"_s)
        return icon(Kind::TrashFull);
    if (name == u"QuestionMark"_s)
        return icon(Kind::QuestionMark);
    return {};
}

QIcon CVIcons::quitBadgedApplicationIcon()
{
    return QIcon(new PaintedIconEngine(Kind::Application, true));
}
