#include "Preferences/CVColumnDisplayOptionDelegate.h"

#include "Browsing/CVBrowserDelegate.h"
#include "Browsing/CVTrackColumns.h"
#include "Platform/CVSettings.h"
#include "Preferences/CVColumnTokensModel.h"

#include <QDialogButtonBox>
#include <QGridLayout>
#include <QLabel>
#include <QListView>
#include <QMenu>
#include <QPushButton>
#include <QShortcut>
#include <QToolButton>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace {

constexpr CVSettingsKey kSmartPositionKey = CVSettingsKey::TrackListSmartColumnPosition;

} // namespace

CVColumnDisplayOptionDelegate::CVColumnDisplayOptionDelegate(
    CVSettings *settings, CVBrowserDelegate *browser, QWidget *parent)
    : QDialog(parent)
    , m_settings(settings)
    , m_browser(browser)
    , m_model(new CVColumnTokensModel(this))
{
    setObjectName(u"CVColumnDisplayOptionsWindow"_s);
    setWindowTitle(u"Column Display Options"_s);
    setAccessibleName(u"Column Display Options"_s);

    auto *label = new QLabel(u"&Columns of the track list, in order:"_s, this);
    tokenView = new QListView(this);
    tokenView->setObjectName(u"tokens"_s);
    tokenView->setAccessibleName(u"Shown columns"_s);
    tokenView->setModel(m_model);
    tokenView->setSelectionMode(QAbstractItemView::SingleSelection);
    tokenView->setDragDropMode(QAbstractItemView::DragDrop);
    tokenView->setDefaultDropAction(Qt::MoveAction);
    tokenView->setDragDropOverwriteMode(false);
    tokenView->setDropIndicatorShown(true);
    label->setBuddy(tokenView);

    addButton = new QToolButton(this);
    addButton->setText(u"&Add Column"_s);
    addButton->setIcon(QIcon::fromTheme(u"list-add"_s));
    addButton->setToolButtonStyle(Qt::ToolButtonTextBesideIcon);
    addButton->setPopupMode(QToolButton::InstantPopup);
    addButton->setFocusPolicy(Qt::StrongFocus);
    addButton->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
    addButton->setMenu(new QMenu(addButton));
    connect(addButton->menu(), &QMenu::aboutToShow, this, &CVColumnDisplayOptionDelegate::fillAddMenu);

    auto makeButton = [this](const QString &text, const QString &icon) {
        auto *b = new QPushButton(QIcon::fromTheme(icon), text, this);
        b->setAutoDefault(false);
        return b;
    };
    removeButton = makeButton(u"&Remove Column"_s, u"list-remove"_s);
    removeButton->setToolTip(u"Remove the selected column (Delete)"_s);
    upButton = makeButton(u"Move &Up"_s, u"go-up"_s);
    upButton->setToolTip(u"Ctrl+Up"_s);
    downButton = makeButton(u"Move &Down"_s, u"go-down"_s);
    downButton->setToolTip(u"Ctrl+Down"_s);
    smartButton = makeButton(QString(), QString());
    resetButton = makeButton(u"Reset to De&fault"_s, u"edit-undo"_s);

    connect(removeButton, &QPushButton::clicked, this, &CVColumnDisplayOptionDelegate::removeSelectedColumn);
    connect(upButton, &QPushButton::clicked, this, [this] { moveSelectedColumn(-1); });
    connect(downButton, &QPushButton::clicked, this, [this] { moveSelectedColumn(1); });
    connect(smartButton, &QPushButton::clicked, this, &CVColumnDisplayOptionDelegate::moveSmartColumn);
    connect(resetButton, &QPushButton::clicked, this, &CVColumnDisplayOptionDelegate::resetToDefault);
    auto shortcut = [this](const QKeySequence &key, auto &&slot) {
        auto *s = new QShortcut(key, tokenView);
        s->setContext(Qt::WidgetShortcut);
        connect(s, &QShortcut::activated, this, slot);
    };
    shortcut(QKeySequence(QKeySequence::Delete), [this] { removeSelectedColumn(); });
    shortcut(QKeySequence(u"Ctrl+Up"_s), [this] { moveSelectedColumn(-1); });
    shortcut(QKeySequence(u"Ctrl+Down"_s), [this] { moveSelectedColumn(1); });

    connect(m_model, &CVColumnTokensModel::tokensMoved, this, [this] { setTokens(m_model->identifiers()); });
    connect(tokenView->selectionModel(), &QItemSelectionModel::currentChanged, this,
        &CVColumnDisplayOptionDelegate::updateButtons);
    // A column dragged in the track list itself shows here too.
    m_settings->observe(CVSettingsKey::PlaylistTrackListColumns, this, [this] {
        if (!m_applying && isVisible())
            reloadTokens();
    });

    auto *buttons = new QDialogButtonBox(QDialogButtonBox::Close | QDialogButtonBox::Help, this);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::close);
    connect(buttons, &QDialogButtonBox::helpRequested, this, &CVColumnDisplayOptionDelegate::helpRequested);

    auto *layout = new QGridLayout(this);
    layout->addWidget(label, 0, 0, 1, 2);
    layout->addWidget(tokenView, 1, 0, 7, 1);
    int row = 1;
    for (QWidget *w :
        std::initializer_list<QWidget *> { addButton, removeButton, upButton, downButton, smartButton, resetButton })
        layout->addWidget(w, row++, 1);
    layout->setRowStretch(row, 1);
    layout->addWidget(buttons, 8, 0, 1, 2);
    QWidget::setTabOrder(tokenView, addButton);
    resize(420, 380);

    reloadTokens();
}

void CVColumnDisplayOptionDelegate::showEvent(QShowEvent *event)
{
    const QStringList frame = m_settings->stringValue(FrameKey).split(u' ');
    if (frame.size() == 4 && frame[2].toInt() > 0 && frame[3].toInt() > 0)
        setGeometry(frame[0].toInt(), frame[1].toInt(), frame[2].toInt(), frame[3].toInt());
    reloadTokens();
    QDialog::showEvent(event);
}

void CVColumnDisplayOptionDelegate::hideEvent(QHideEvent *event)
{
    const QRect g = geometry();
    m_settings->setValue(FrameKey, u"%1 %2 %3 %4"_s.arg(g.x()).arg(g.y()).arg(g.width()).arg(g.height()));
    QDialog::hideEvent(event);
}

void CVColumnDisplayOptionDelegate::reloadTokens()
{
    const QString current = tokenView->currentIndex().data(Qt::UserRole).toString();
    m_model->setIdentifiers(m_browser->getVisibleColumns());
    selectRow(int(m_model->identifiers().indexOf(current)));
    updateButtons();
}

QStringList CVColumnDisplayOptionDelegate::tokens() const
{
    return m_model->identifiers();
}

void CVColumnDisplayOptionDelegate::setTokens(const QStringList &identifiers)
{
    QStringList next;
    for (const QString &id : identifiers)
        if (CVTrackColumns::indexOf(id) >= 0 && !next.contains(id))
            next.append(id);
    if (next.isEmpty())
        return;
    const QString current = tokenView->currentIndex().data(Qt::UserRole).toString();
    next = CVTrackColumns::placeSmartColumn(next, int(m_settings->integerValue(kSmartPositionKey)));
    m_applying = true;
    m_browser->setTableColumns(next);
    m_browser->saveTrackListColumns();
    m_applying = false;
    m_model->setIdentifiers(m_browser->getVisibleColumns());
    selectRow(int(m_model->identifiers().indexOf(current)));
    updateButtons();
}

void CVColumnDisplayOptionDelegate::addColumn(const QString &identifier)
{
    QStringList next = tokens();
    if (next.contains(identifier) || CVTrackColumns::indexOf(identifier) < 0)
        return;
    // A new column goes after the selected one, else at the end.
    const int row = selectedRow();
    next.insert(row < 0 ? next.size() : row + 1, identifier);
    setTokens(next);
    selectRow(int(tokens().indexOf(identifier)));
}

void CVColumnDisplayOptionDelegate::removeSelectedColumn()
{
    const int row = selectedRow();
    QStringList next = tokens();
    if (row < 0 || next.size() <= 1)
        return;
    next.removeAt(row);
    setTokens(next);
    selectRow(std::min(row, int(tokens().size()) - 1));
}

void CVColumnDisplayOptionDelegate::moveSelectedColumn(int by)
{
    const int row = selectedRow();
    QStringList next = tokens();
    const int to = row + by;
    if (row < 0 || to < 0 || to >= next.size())
        return;
    const QString id = next[row];
    next.move(row, to);
    setTokens(next);
    selectRow(int(tokens().indexOf(id)));
}

void CVColumnDisplayOptionDelegate::moveSmartColumn()
{
    const int position = m_settings->integerValue(kSmartPositionKey) == 0 ? 1 : 0;
    m_settings->setValue(kSmartPositionKey, position);
    setTokens(tokens());
}

void CVColumnDisplayOptionDelegate::resetToDefault()
{
    setTokens(CVTrackColumns::defaultIdentifiers());
}

void CVColumnDisplayOptionDelegate::fillAddMenu()
{
    QMenu *menu = addButton->menu();
    menu->clear();
    const QStringList shown = tokens();
    for (const CVTrackColumn &c : CVTrackColumns::all()) {
        if (shown.contains(c.identifier))
            continue;
        QAction *a = menu->addAction(c.title);
        const QString id = c.identifier;
        connect(a, &QAction::triggered, this, [this, id] { addColumn(id); });
    }
}

void CVColumnDisplayOptionDelegate::updateButtons()
{
    const int row = selectedRow();
    const int count = int(tokens().size());
    removeButton->setEnabled(row >= 0 && count > 1);
    upButton->setEnabled(row > 0);
    downButton->setEnabled(row >= 0 && row < count - 1);
    addButton->setEnabled(count < int(CVTrackColumns::all().size()));
    smartButton->setText(
        u"Move Smart Column to %1"_s.arg(m_settings->integerValue(kSmartPositionKey) == 0 ? u"Right"_s : u"Left"_s));
}

int CVColumnDisplayOptionDelegate::selectedRow() const
{
    const QModelIndex current = tokenView->currentIndex();
    return current.isValid() ? current.row() : -1;
}

void CVColumnDisplayOptionDelegate::selectRow(int row)
{
    if (row < 0 || row >= m_model->rowCount()) {
        tokenView->setCurrentIndex({});
        return;
    }
    tokenView->setCurrentIndex(m_model->index(row));
}
