#include "CVHTrayItem.h"

#include "CVHCorvanaHelper.h"

#include <QIcon>
#include <QMenu>
#include <QPainter>
#include <QPixmap>
#include <QSystemTrayIcon>

using namespace Qt::StringLiterals;

namespace {

// Two chain links: the theme's icon when it has one, else drawn.
QIcon trayIcon()
{
    QIcon icon = QIcon::fromTheme(u"insert-link"_s);
    if (!icon.isNull())
        return icon;
    QPixmap pixmap(32, 32);
    pixmap.fill(Qt::transparent);
    QPainter painter(&pixmap);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(QPen(QColor(60, 60, 60), 4));
    painter.drawRoundedRect(QRectF(3, 11, 16, 10), 5, 5);
    painter.drawRoundedRect(QRectF(13, 11, 16, 10), 5, 5);
    return QIcon(pixmap);
}

} // namespace

CVHTrayItem::CVHTrayItem(CVHCorvanaHelper *helper, QObject *parent)
    : QObject(parent)
    , m_helper(helper)
    , m_menu(new QMenu)
    , m_icon(new QSystemTrayIcon(trayIcon(), this))
{
    m_state = m_menu->addAction(QString());
    m_state->setEnabled(false);
    m_menu->addSeparator();
    connect(m_menu->addAction(u"Repair Links Now"_s), &QAction::triggered, m_helper, &CVHCorvanaHelper::RepairLinksNow);
    m_openCorvana = m_menu->addAction(u"Open Corvana"_s);
    connect(m_openCorvana, &QAction::triggered, m_helper, &CVHCorvanaHelper::openCorvana);
    m_startAtLogin = m_menu->addAction(u"Start at Login"_s);
    m_startAtLogin->setCheckable(true);
    connect(m_startAtLogin, &QAction::triggered, m_helper, &CVHCorvanaHelper::setStartsAtLogin);
    m_menu->addSeparator();
    connect(m_menu->addAction(u"Quit Corvana Helper"_s), &QAction::triggered, m_helper, &CVHCorvanaHelper::Quit);
    m_icon->setContextMenu(m_menu);
    connect(m_menu, &QMenu::aboutToShow, this, &CVHTrayItem::refresh);
    connect(m_helper, &CVHCorvanaHelper::statusChanged, this, &CVHTrayItem::refresh);
    refresh();
}

CVHTrayItem::~CVHTrayItem()
{
    delete m_menu;
}

void CVHTrayItem::show()
{
    m_icon->show();
}

void CVHTrayItem::refresh()
{
    const QString status = m_helper->statusLine();
    m_state->setText(status);
    m_icon->setToolTip(u"Corvana Helper: "_s + status);
    m_openCorvana->setEnabled(!m_helper->corvanaProgram().isEmpty());
    m_startAtLogin->setChecked(m_helper->startsAtLogin());
}
