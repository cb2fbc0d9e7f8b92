#include "MainWindow/CVLocationsItemDelegate.h"

#include <QApplication>
#include <QFontMetrics>
#include <QStyle>

using namespace Qt::StringLiterals;

QString CVLocationsItemDelegate::elidedFolders(const QString &text, const QFontMetrics &metrics, int width)
{
    if (metrics.horizontalAdvance(text) <= width)
        return text;
    const QString ellipsis = u"…/"_s;
    qsizetype slash = text.indexOf(u'/');
    if (slash < 0)
        return metrics.elidedText(text, Qt::ElideRight, width);
    // The longest tail of whole folders that fits.
    QString tail;
    for (; slash >= 0; slash = text.indexOf(u'/', slash + 1)) {
        tail = ellipsis + text.mid(slash + 1);
        if (metrics.horizontalAdvance(tail) <= width)
            return tail;
    }
    return metrics.elidedText(tail, Qt::ElideRight, width);
}

QString CVLocationsItemDelegate::shownText(const QStyleOptionViewItem &option, const QModelIndex &index) const
{
    QStyleOptionViewItem opt = option;
    initStyleOption(&opt, index);
    const QWidget *widget = opt.widget;
    QStyle *style = widget ? widget->style() : QApplication::style();
    // The style leaves this margin on either side of an item's text.
    const int margin = style->pixelMetric(QStyle::PM_FocusFrameHMargin, nullptr, widget) + 1;
    const QRect text = style->subElementRect(QStyle::SE_ItemViewItemText, &opt, widget);
    return elidedFolders(opt.text, opt.fontMetrics, text.width() - 2 * margin);
}

void CVLocationsItemDelegate::paint(
    QPainter *painter, const QStyleOptionViewItem &option, const QModelIndex &index) const
{
    QStyleOptionViewItem opt = option;
    initStyleOption(&opt, index);
    opt.text = shownText(option, index);
    const QWidget *widget = opt.widget;
    QStyle *style = widget ? widget->style() : QApplication::style();
    style->drawControl(QStyle::CE_ItemViewItem, &opt, painter, widget);
}
