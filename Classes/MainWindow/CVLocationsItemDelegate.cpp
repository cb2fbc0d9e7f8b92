#include "MainWindow/CVLocationsItemDelegate.h"

#include "MainWindow/CVLocationsModel.h"

#include <QApplication>
#include <QFontMetrics>
#include <QStyle>

using namespace Qt::StringLiterals;

QString CVLocationsItemDelegate::elidedFolders(
    const QString &text, const QFontMetrics &metrics, int width, bool keepFirst)
{
    if (metrics.horizontalAdvance(text) <= width)
        return text;
    const QStringList folders = text.split(u'/');
    if (folders.size() < 2)
        return metrics.elidedText(text, Qt::ElideRight, width);
    // The longest tail of whole folders that fits, behind the first folder where that is kept.
    const qsizetype n = folders.size();
    if (keepFirst) {
        for (qsizetype k = n - 2; k >= 1; --k) {
            const QString shown = folders.first() + u"/…/"_s + folders.mid(n - k).join(u'/');
            if (metrics.horizontalAdvance(shown) <= width)
                return shown;
        }
    }
    for (qsizetype k = n - 1; k >= 1; --k) {
        const QString shown = u"…/"_s + folders.mid(n - k).join(u'/');
        if (metrics.horizontalAdvance(shown) <= width)
            return shown;
    }
    return metrics.elidedText(u"…/"_s + folders.last(), Qt::ElideRight, width);
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
    // Under a drive the outer folders say little (home, a user's name); further down the first
    // one tells the row from its neighbours ("iTunes U/…/Lectures").
    const bool keepFirst = index.parent().isValid() && !index.parent().data(CVLocationsModel::IsDriveRole).toBool();
    return elidedFolders(opt.text, opt.fontMetrics, text.width() - 2 * margin, keepFirst);
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
