#pragma once

#include <QFrame>
#include <QList>

class QLabel;
class QToolButton;

// The pop-over under the filter path bar: the source row (tag 0) and one row per filter in the
// stored order (tags 1 to 5), each with a segmented control whose segments are reported by
// number: row 0 browse / clear all; rows 1-5 clear, clear the ones after, move up, move down
// (the first row's third segment moves down, the last row's second moves up).
class CVFilterPathPopover : public QFrame {
    Q_OBJECT

public:
    static constexpr int FilterRows = 5;

    explicit CVFilterPathPopover(QWidget *parent = nullptr);

    void setSourceRow(const QString &title, const QString &browseTitle, bool browseEnabled);
    void setFilterRow(int tag, const QString &title, const QString &description, bool inForce);
    QString rowTitle(int tag) const;
    QString rowDescription(int tag) const;
    QString browseTitle() const;

    void popUpUnder(QWidget *anchor);

Q_SIGNALS:
    void segmentClicked(int tag, int segment);

private:
    struct Row {
        QLabel *title = nullptr;
        QLabel *description = nullptr;
        QList<QToolButton *> segments;
    };
    QToolButton *segment(Row &row, int tag, int number, const QString &text, const QString &accessible);

    QList<Row> m_rows;
};
