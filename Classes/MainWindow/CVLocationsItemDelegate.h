#pragma once

#include <QStyledItemDelegate>

class QFontMetrics;

// Draws the locations pane's rows. A row of several folders ("home/alice/Music/iTunes") that
// is too wide loses its outer folders first ("…/Music/iTunes"): the innermost folder is the
// one a user chooses by, and the full path is in the row's tool tip.
class CVLocationsItemDelegate : public QStyledItemDelegate {
    Q_OBJECT

public:
    using QStyledItemDelegate::QStyledItemDelegate;

    // `text` as it fits in `width`: whole folders dropped from the front behind "…/"; the
    // innermost folder alone is cut at its end when even it does not fit.
    static QString elidedFolders(const QString &text, const QFontMetrics &metrics, int width);
    // The text a row shows in the view at its present width.
    QString shownText(const QStyleOptionViewItem &option, const QModelIndex &index) const;

    void paint(QPainter *painter, const QStyleOptionViewItem &option, const QModelIndex &index) const override;
};
