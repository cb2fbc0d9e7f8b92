#include "Preferences/CVPrefsWindowController.h"

#include "Preferences/AdvancedPreferences.h"
#include "Preferences/CorvanaHelperPreferences.h"
#include "Preferences/GeneralPreferences.h"
#include "Preferences/UpdatingPreferences.h"

#include <QAction>
#include <QActionGroup>
#include <QDialogButtonBox>
#include <QPushButton>
#include <QStackedWidget>
#include <QToolBar>
#include <QToolButton>
#include <QVBoxLayout>

using namespace Qt::StringLiterals;

CVPrefsWindowController::CVPrefsWindowController(CVSettings *settings, CVUpdateChecker *checker,
    CVHelperApplicationControl *helperControl, CVHUserDefaults *helperDefaults, QWidget *parent)
    : QDialog(parent)
    , m_toolBar(new QToolBar(this))
    , m_paneActions(new QActionGroup(this))
    , m_stack(new QStackedWidget(this))
{
    setObjectName(u"CVPrefsWindow"_s);
    setWindowTitle(u"Corvana Preferences"_s);
    setAccessibleName(u"Preferences"_s);
    m_panes = { new GeneralPreferences(settings, m_stack), new AdvancedPreferences(settings, m_stack),
        new UpdatingPreferences(settings, checker, m_stack),
        new CorvanaHelperPreferences(settings, helperControl, helperDefaults, m_stack) };

    m_toolBar->setAccessibleName(u"Panes"_s);
    m_toolBar->setToolButtonStyle(Qt::ToolButtonTextUnderIcon);
    m_toolBar->setMovable(false);
    m_paneActions->setExclusive(true);
    for (int i = 0; i < m_panes.size(); ++i) {
        CVPreferencesPane *p = m_panes[i];
        m_stack->addWidget(p);
        QAction *a = m_toolBar->addAction(p->icon(), p->title());
        a->setCheckable(true);
        // Alt+1 … Alt+4 reach the panes from anywhere in the window.
        a->setShortcut(QKeySequence(u"Alt+%1"_s.arg(i + 1)));
        a->setToolTip(u"%1 (%2)"_s.arg(p->title(), a->shortcut().toString(QKeySequence::NativeText)));
        m_paneActions->addAction(a);
        connect(a, &QAction::triggered, this, [this, i] { showPane(i); });
        if (QWidget *button = m_toolBar->widgetForAction(a)) {
            button->setFocusPolicy(Qt::TabFocus);
            button->setAccessibleName(p->title());
        }
    }

    auto *buttons = new QDialogButtonBox(QDialogButtonBox::Close | QDialogButtonBox::Help, this);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::close);
    connect(buttons, &QDialogButtonBox::helpRequested, this,
        [this] { Q_EMIT helpRequested(currentPane() == Helper ? u"helper.html"_s : u"preferences.html"_s); });

    auto *layout = new QVBoxLayout(this);
    layout->setMenuBar(m_toolBar);
    layout->addWidget(m_stack, 1);
    layout->addWidget(buttons);
    setMinimumWidth(560);
    showPane(General);
}

void CVPrefsWindowController::showPane(int pane)
{
    if (pane < 0 || pane >= m_panes.size())
        return;
    m_paneActions->actions().at(pane)->setChecked(true);
    m_stack->setCurrentIndex(pane);
    // A pane shown again reads the settings again (they may have changed in the window).
    m_panes[pane]->reloadNibOutlets();
    setWindowTitle(u"Corvana Preferences — %1"_s.arg(m_panes[pane]->title()));
}

int CVPrefsWindowController::currentPane() const
{
    return m_stack->currentIndex();
}

GeneralPreferences *CVPrefsWindowController::generalPreferences() const
{
    return static_cast<GeneralPreferences *>(m_panes[General]);
}

AdvancedPreferences *CVPrefsWindowController::advancedPreferences() const
{
    return static_cast<AdvancedPreferences *>(m_panes[Advanced]);
}

UpdatingPreferences *CVPrefsWindowController::updatingPreferences() const
{
    return static_cast<UpdatingPreferences *>(m_panes[Updating]);
}

CorvanaHelperPreferences *CVPrefsWindowController::helperPreferences() const
{
    return static_cast<CorvanaHelperPreferences *>(m_panes[Helper]);
}
