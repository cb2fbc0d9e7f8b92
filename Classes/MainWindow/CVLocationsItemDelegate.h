#pragma once

#include <QStyledItemDelegate>

class QFontMetrics;

// Draws the locations pane's rows. A row of several folders ("home/alice/Music/iTunes") that
// is too wide loses whole folders before the innermost one, which a user chooses by; the full
// path is in the row's tool tip.
class CVLocationsItemDelegate : public QStyledItemDelegate {
    Q_OBJECT

public:
    using QStyledItemDelegate::QStyledItemDelegate;

    // `text` as it fits in `width`: whole folders before the innermost one give way to "…",
    // those after the first one first when `keepFirst` ("iTunes U/…/Lectures"), then the rest
    // ("…/Lectures"); the innermost folder is cut at its end only when it alone does not fit.
    static QString elidedFolders(const QString &text, const QFontMetrics &metrics, int width, bool keepFirst = false);
    // The text a row shows in the view at its present width.
    QString shownText(const QStyleOptionViewItem &option, const QModelIndex &index) const;

    void paint(QPainter *painter, const QStyleOptionViewItem &option, const QModelIndex &index) const override;
};
