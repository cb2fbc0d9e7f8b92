#include "Views/CVFilterPathPopover.h"

#include <QGridLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QScreen>
#include <QToolButton>

using namespace Qt::StringLiterals;

CVFilterPathPopover::CVFilterPathPopover(QWidget *parent)
    : QFrame(parent, Qt::Popup)
{
    setFrameShape(QFrame::StyledPanel);
    setAccessibleName(u"Filters"_s);
    auto *grid = new QGridLayout(this);
    grid->setContentsMargins(12, 10, 12, 10);
    grid->setHorizontalSpacing(12);
    m_rows.resize(FilterRows + 1);
    for (int tag = 0; tag <= FilterRows; ++tag) {
        Row &row = m_rows[tag];
        row.title = new QLabel(this);
        QFont bold = row.title->font();
        bold.setBold(true);
        row.title->setFont(bold);
        row.description = new QLabel(this);
        row.description->setTextFormat(Qt::PlainText);
        auto *segments = new QHBoxLayout;
        segments->setSpacing(0);
        if (tag == 0) {
            segments->addWidget(segment(row, tag, 0, QString(), QString()));
            segments->addWidget(segment(row, tag, 1, u"Clear All Filters"_s, u"Clear all filters"_s));
        } else {
            segments->addWidget(segment(row, tag, 0, u"Clear"_s, u"Clear this filter"_s));
            if (tag < FilterRows)
                segments->addWidget(segment(row, tag, 1, u"Clear After"_s, u"Clear the filters after this one"_s));
            if (tag == 1) {
                segments->addWidget(segment(row, tag, 2, u"\u25BC"_s, u"Move down"_s));
            } else if (tag == FilterRows) {
                segments->addWidget(segment(row, tag, 1, u"\u25B2"_s, u"Move up"_s));
            } else {
                segments->addWidget(segment(row, tag, 2, u"\u25B2"_s, u"Move up"_s));
                segments->addWidget(segment(row, tag, 3, u"\u25BC"_s, u"Move down"_s));
            }
        }
        segments->addStretch(1);
        grid->addWidget(row.title, tag, 0, Qt::AlignRight);
        grid->addWidget(row.description, tag, 1);
        grid->addLayout(segments, tag, 2);
    }
    grid->setColumnStretch(1, 1);
}

QToolButton *CVFilterPathPopover::segment(Row &row, int tag, int number, const QString &text, const QString &accessible)
{
    auto *button = new QToolButton(this);
    button->setText(text);
    button->setAccessibleName(accessible);
    button->setToolButtonStyle(Qt::ToolButtonTextOnly);
    button->setAutoRaise(false);
    connect(button, &QToolButton::clicked, this, [this, tag, number] {
        hide();
        Q_EMIT segmentClicked(tag, number);
    });
    row.segments.append(button);
    return button;
}

void CVFilterPathPopover::setSourceRow(const QString &title, const QString &browseTitle, bool browseEnabled)
{
    Row &row = m_rows[0];
    row.title->setText(title);
    row.segments[0]->setText(browseTitle);
    row.segments[0]->setAccessibleName(browseTitle);
    row.segments[0]->setEnabled(browseEnabled);
}

void CVFilterPathPopover::setFilterRow(int tag, const QString &title, const QString &description, bool inForce)
{
    Row &row = m_rows[tag];
    row.title->setText(title);
    row.description->setText(description);
    row.description->setEnabled(inForce);
    row.segments[0]->setEnabled(inForce);
}

QString CVFilterPathPopover::rowTitle(int tag) const
{
    return m_rows[tag].title->text();
}

QString CVFilterPathPopover::rowDescription(int tag) const
{
    return m_rows[tag].description->text();
}

QString CVFilterPathPopover::browseTitle() const
{
    return m_rows[0].segments[0]->text();
}

void CVFilterPathPopover::popUpUnder(QWidget *anchor)
{
    adjustSize();
    QPoint at = anchor->mapToGlobal(QPoint((anchor->width() - width()) / 2, anchor->height() + 2));
    if (const QScreen *screen = anchor->screen()) {
        const QRect area = screen->availableGeometry();
        at.setX(qBound(area.left(), at.x(), qMax(area.left(), area.right() - width())));
    }
    move(at);
    show();
}
