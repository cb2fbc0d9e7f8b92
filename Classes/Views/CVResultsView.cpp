#include "Views/CVResultsView.h"

#include <QApplication>
#include <QFrame>
#include <QGraphicsDropShadowEffect>
#include <QHBoxLayout>
#include <QLabel>
#include <QListView>
#include <QMenu>
#include <QPainter>
#include <QPushButton>
#include <QStyledItemDelegate>
#include <QVBoxLayout>

using namespace Qt::StringLiterals;

namespace {

// A row: the outcome's icon, the track's title, and under it the message in smaller grey type.
class ResultRowDelegate : public QStyledItemDelegate {
public:
    using QStyledItemDelegate::QStyledItemDelegate;

    QSize sizeHint(const QStyleOptionViewItem &option, const QModelIndex &) const override
    {
        const QFontMetrics fm(option.font);
        return { 200, fm.height() + smallFont(option.font).pixelSize() + 14 };
    }

    void paint(QPainter *p, const QStyleOptionViewItem &option, const QModelIndex &index) const override
    {
        QStyleOptionViewItem opt = option;
        initStyleOption(&opt, index);
        const QWidget *widget = opt.widget;
        QStyle *style = widget ? widget->style() : QApplication::style();
        // The background and selection as the style draws them, without the text and icon.
        opt.text.clear();
        opt.icon = QIcon();
        style->drawControl(QStyle::CE_ItemViewItem, &opt, p, widget);

        const QRect r = option.rect.adjusted(6, 3, -6, -3);
        const int side = qMin(24, r.height());
        const QRect iconRect(r.left(), r.top() + (r.height() - side) / 2, side, side);
        index.data(Qt::DecorationRole).value<QIcon>().paint(p, iconRect);
        const bool selected = option.state & QStyle::State_Selected;
        const QPalette::ColorGroup group = option.state & QStyle::State_Active ? QPalette::Active : QPalette::Inactive;
        const QRect text(iconRect.right() + 8, r.top(), r.right() - iconRect.right() - 8, r.height());
        const QFontMetrics fm(option.font);
        p->save();
        p->setFont(option.font);
        p->setPen(option.palette.color(group, selected ? QPalette::HighlightedText : QPalette::Text));
        const QRect one(text.left(), text.top(), text.width(), fm.height());
        p->drawText(one, Qt::AlignLeft | Qt::AlignVCenter,
            fm.elidedText(index.data(Qt::DisplayRole).toString(), Qt::ElideRight, one.width()));
        const QFont small = smallFont(option.font);
        p->setFont(small);
        QColor grey = option.palette.color(group, selected ? QPalette::HighlightedText : QPalette::PlaceholderText);
        p->setPen(grey);
        const QFontMetrics smallMetrics(small);
        const QRect two(text.left(), one.bottom() + 2, text.width(), smallMetrics.height());
        p->drawText(two, Qt::AlignLeft | Qt::AlignVCenter,
            smallMetrics.elidedText(index.data(Qt::ToolTipRole).toString(), Qt::ElideRight, two.width()));
        p->restore();
    }

private:
    static QFont smallFont(const QFont &base)
    {
        QFont small = base;
        const QFontMetrics fm(base);
        small.setPixelSize(qMax(9, fm.height() * 4 / 5));
        return small;
    }
};

QLabel *makeLine(QWidget *parent, const QString &name)
{
    auto *label = new QLabel(parent);
    label->setTextFormat(Qt::PlainText);
    label->setAccessibleName(name);
    return label;
}

} // namespace

CVResultsView::CVResultsView(QWidget *parent)
    : QWidget(parent)
    , m_headline(makeLine(this, u"Results headline"_s))
    , m_tally(makeLine(this, u"Results tally"_s))
    , m_list(new QListView(this))
    , m_trash(makeLine(this, u"Trash summary"_s))
    , m_emptyTrash(new QPushButton(u"Empty Trash…"_s, this))
    , m_donate(makeLine(this, u"Donation"_s))
    , m_donateButton(new QPushButton(u"Donate…"_s, this))
    , m_show(new QPushButton(u"Show in File Manager"_s, this))
    , m_openPlayer(new QPushButton(u"Open Player"_s, this))
    , m_spanMore(new QPushButton(u"Span More"_s, this))
    , m_quit(new QPushButton(u"Quit Corvana"_s, this))
{
    setAccessibleName(u"Results"_s);
    QFont big = m_headline->font();
    big.setPointSizeF(big.pointSizeF() * 1.6);
    big.setBold(true);
    m_headline->setFont(big);
    m_headline->setAlignment(Qt::AlignCenter);
    auto *shadow = new QGraphicsDropShadowEffect(m_headline);
    shadow->setBlurRadius(6);
    shadow->setOffset(0, 1);
    shadow->setColor(QColor(0, 0, 0, 70));
    m_headline->setGraphicsEffect(shadow);
    m_tally->setAlignment(Qt::AlignCenter);
    m_tally->setEnabled(false); // dimmed text
    m_tally->setWordWrap(true);

    m_list->setAccessibleName(u"Results list"_s);
    m_list->setItemDelegate(new ResultRowDelegate(m_list));
    m_list->setUniformItemSizes(true);
    m_list->setSelectionMode(QAbstractItemView::SingleSelection);
    m_list->setAlternatingRowColors(true);
    m_list->setEditTriggers(QAbstractItemView::NoEditTriggers);
    m_list->setContextMenuPolicy(Qt::CustomContextMenu);
    connect(m_list, &QListView::customContextMenuRequested, this, &CVResultsView::showRowMenu);
    connect(m_list, &QListView::doubleClicked, this,
        [this](const QModelIndex &index) { Q_EMIT showInFileManagerRequested(index.row()); });

    auto *trashRow = new QHBoxLayout;
    trashRow->addWidget(m_trash, 1);
    trashRow->addWidget(m_emptyTrash);
    connect(m_emptyTrash, &QPushButton::clicked, this, &CVResultsView::emptyTrashClicked);

    // The donation panel: a plain invitation; nothing depends on it.
    auto *donation = new QFrame(this);
    donation->setFrameShape(QFrame::StyledPanel);
    donation->setAccessibleName(u"Donation panel"_s);
    auto *donationRow = new QHBoxLayout(donation);
    donationRow->setContentsMargins(10, 6, 10, 6);
    donationRow->addWidget(m_donate, 1);
    donationRow->addWidget(m_donateButton);
    connect(m_donateButton, &QPushButton::clicked, this, &CVResultsView::donateClicked);

    auto *buttons = new QHBoxLayout;
    buttons->addWidget(m_show);
    buttons->addWidget(m_openPlayer);
    buttons->addStretch(1);
    buttons->addWidget(m_quit);
    buttons->addWidget(m_spanMore);
    m_spanMore->setDefault(true);
    m_show->setEnabled(false);
    connect(m_show, &QPushButton::clicked, this, [this] { Q_EMIT showInFileManagerRequested(currentRow()); });
    connect(m_openPlayer, &QPushButton::clicked, this, &CVResultsView::openPlayerClicked);
    connect(m_spanMore, &QPushButton::clicked, this, &CVResultsView::spanMoreClicked);
    connect(m_quit, &QPushButton::clicked, this, &CVResultsView::quitClicked);

    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(16, 14, 16, 12);
    layout->setSpacing(8);
    layout->addWidget(m_headline);
    layout->addWidget(m_tally);
    layout->addWidget(m_list, 1);
    layout->addLayout(trashRow);
    layout->addWidget(donation);
    layout->addLayout(buttons);
}

void CVResultsView::setModel(QAbstractItemModel *model)
{
    m_list->setModel(model);
    connect(m_list->selectionModel(), &QItemSelectionModel::currentChanged, this,
        [this](const QModelIndex &current) { m_show->setEnabled(current.isValid()); });
    connect(model, &QAbstractItemModel::modelReset, this, [this] { m_show->setEnabled(false); });
}

void CVResultsView::setHeadline(const QString &text)
{
    m_headline->setText(text);
}

QString CVResultsView::headline() const
{
    return m_headline->text();
}

void CVResultsView::setTally(const QString &text)
{
    m_tally->setText(text);
}

QString CVResultsView::tally() const
{
    return m_tally->text();
}

void CVResultsView::setTrashSummary(const QString &text, bool hideTrashButtons)
{
    m_trash->setText(text);
    m_emptyTrash->setVisible(!hideTrashButtons);
}

QString CVResultsView::trashSummary() const
{
    return m_trash->text();
}

bool CVResultsView::trashButtonsHidden() const
{
    return m_emptyTrash->isHidden();
}

void CVResultsView::setDonateText(const QString &text)
{
    m_donate->setText(text);
}

QString CVResultsView::donateText() const
{
    return m_donate->text();
}

int CVResultsView::currentRow() const
{
    const QModelIndex current = m_list->currentIndex();
    return current.isValid() ? current.row() : -1;
}

void CVResultsView::scrollToTop()
{
    m_list->scrollToTop();
}

void CVResultsView::showRowMenu(const QPoint &at)
{
    const QModelIndex clicked = m_list->indexAt(at);
    if (!clicked.isValid())
        return;
    m_list->setCurrentIndex(clicked);
    QMenu menu;
    QAction *show = menu.addAction(u"Show in File Manager"_s);
    QAction *reveal = menu.addAction(u"Reveal in Player"_s);
    QAction *play = menu.addAction(u"Play in Player"_s);
    QAction *chosen = menu.exec(m_list->viewport()->mapToGlobal(at));
    if (chosen == show)
        Q_EMIT showInFileManagerRequested(clicked.row());
    else if (chosen == reveal)
        Q_EMIT revealInPlayerRequested(clicked.row());
    else if (chosen == play)
        Q_EMIT playInPlayerRequested(clicked.row());
}
