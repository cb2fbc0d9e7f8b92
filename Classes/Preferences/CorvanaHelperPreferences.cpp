#include "Preferences/CorvanaHelperPreferences.h"

#include "Platform/CVHUserDefaults.h"
#include "Platform/CVHelperApplicationControl.h"
#include "Platform/CVSettings.h"
#include "Views/CVIcons.h"
#include "Views/CVSegmentedControl.h"

#include <QApplication>
#include <QCheckBox>
#include <QDir>
#include <QLabel>
#include <QPushButton>

using namespace Qt::StringLiterals;

namespace {

CVSegmentedControl *noYes(QWidget *parent, const QString &name)
{
    auto *c = new CVSegmentedControl({ u"No"_s, u"Yes"_s }, CVSegmentedControl::Mode::SelectOne, parent);
    c->setObjectName(name);
    return c;
}

} // namespace

CorvanaHelperPreferences::CorvanaHelperPreferences(
    CVSettings *settings, CVHelperApplicationControl *control, CVHUserDefaults *helperDefaults, QWidget *parent)
    : CVPreferencesPane(
        u"Corvana Helper"_s, QIcon::fromTheme(u"applications-utilities"_s, CVIcons::icon(CVIcons::Kind::Drive)), parent)
    , m_settings(settings)
    , m_control(control)
    , m_helperDefaults(helperDefaults)
{
    m_actions.launch = [this] { m_control->launchCorvanaHelper(); };
    m_actions.quit = [this] { m_control->tellCorvanaHelperToQuit(); };
    m_actions.beep = [] { QApplication::beep(); };

    // Lines broken by hand: a wrapping label inside the panes' stack would not get its height.
    auto *about = new QLabel(u"Corvana Helper runs in the background: it makes the links of dependently\n"
                             "spanned tracks again when their drives come back, and tells you when\n"
                             "tracks become unavailable."_s,
        this);
    addRow({}, about);
    helperPath = new QLabel(this);
    helperPath->setObjectName(u"helperPath"_s);
    helperPath->setTextInteractionFlags(Qt::TextSelectableByMouse);
    addRow(u"Installed at:"_s, helperPath);

    menubarItem = noYes(this, u"menubarItem"_s);
    addRow(u"Show an icon in the panel:"_s, menubarItem);
    connect(
        menubarItem, &CVSegmentedControl::segmentClicked, this, &CorvanaHelperPreferences::setCorvanaHelperMenubarItem);
    alwaysRun = noYes(this, u"alwaysRun"_s);
    addRow(u"Keep running all the time:"_s, alwaysRun);
    connect(alwaysRun, &CVSegmentedControl::segmentClicked, this, &CorvanaHelperPreferences::setCorvanaHelperAlwaysRun);
    loginItem = noYes(this, u"loginItem"_s);
    addRow(u"Start when I log in:"_s, loginItem);
    connect(loginItem, &CVSegmentedControl::segmentClicked, this, &CorvanaHelperPreferences::setCorvanaHelperLoginItem);

    loginItemAlert = addBox(u"Don't ask about starting at login"_s, CVHSettingsKey::LoginItemAlertSupress, false);
    notNecessaryAlert
        = addBox(u"Don't say when Corvana Helper is not needed"_s, CVHSettingsKey::NotNecessaryAlertSupress, false);
    warnWhenPlayerLaunches = addBox(u"Warn of unavailable tracks when the player starts"_s,
        CVHSettingsKey::TracksUnavailableWhenITunesLaunchesAlertSupress, true);
    warnWhenDrivesUnmount = addBox(u"Warn of unavailable tracks when drives are unmounted"_s,
        CVHSettingsKey::TracksUnavailableWhenDrivesUnmountAlertSupress, true);
    warnWhenFilesMissing = addBox(u"Warn of unavailable tracks when files are missing"_s,
        CVHSettingsKey::TracksUnavailableWhenFilesMissingAlertSupress, true);

    launchHelper = new QPushButton(u"&Start Corvana Helper"_s, this);
    launchHelper->setObjectName(u"launchHelper"_s);
    addRow({}, launchHelper);
    connect(launchHelper, &QPushButton::clicked, this, &CorvanaHelperPreferences::launchCorvanaHelperAction);
}

QCheckBox *CorvanaHelperPreferences::addBox(const QString &text, CVHSettingsKey key, bool inverted)
{
    auto *box = new QCheckBox(text, this);
    box->setObjectName(CVHUserDefaults::name(key));
    m_boxes.push_back({ box, key, inverted });
    addRow({}, box);
    connect(box, &QCheckBox::clicked, this,
        [this, key, inverted](bool checked) { m_helperDefaults->setObject(inverted ? !checked : checked, key); });
    return box;
}

bool CorvanaHelperPreferences::isSpanning() const
{
    return m_settings->boolValue(CVSettingsKey::IsSpanning);
}

void CorvanaHelperPreferences::reloadNibOutlets()
{
    QString path = CVHelperApplicationControl::installedHelperPath();
    const QString home = QDir::homePath();
    if (path.startsWith(home + u'/'))
        path = u'~' + path.mid(home.size());
    helperPath->setText(path);
    helperPath->setToolTip(CVHelperApplicationControl::installedHelperPath());
    menubarItem->setSelectedSegment(m_helperDefaults->integerForKey(CVHSettingsKey::ShowInMenubar) ? 1 : 0);
    alwaysRun->setSelectedSegment(m_helperDefaults->integerForKey(CVHSettingsKey::AllowedToAlwaysRun) ? 1 : 0);
    loginItem->setSelectedSegment(m_control->inLoginItems() ? 1 : 0);
    for (const Box &box : m_boxes) {
        const bool stored = m_helperDefaults->boolForKey(box.key);
        box.box->setChecked(box.inverted ? !stored : stored);
    }
}

void CorvanaHelperPreferences::launchCorvanaHelperAction()
{
    if (isSpanning()) {
        m_actions.beep();
        return;
    }
    m_actions.launch();
}

void CorvanaHelperPreferences::setCorvanaHelperMenubarItem(int segment)
{
    const bool changed = m_helperDefaults->integerForKey(CVHSettingsKey::ShowInMenubar) != segment;
    if (!changed)
        return;
    m_helperDefaults->setObject(segment, CVHSettingsKey::ShowInMenubar);
    // The helper reads this once, when it starts.
    if (isSpanning()) {
        m_actions.beep();
        return;
    }
    m_actions.quit();
    m_actions.launch();
}

void CorvanaHelperPreferences::setCorvanaHelperAlwaysRun(int segment)
{
    if (m_helperDefaults->integerForKey(CVHSettingsKey::AllowedToAlwaysRun) != segment)
        m_helperDefaults->setObject(segment, CVHSettingsKey::AllowedToAlwaysRun);
}

void CorvanaHelperPreferences::setCorvanaHelperLoginItem(int segment)
{
    m_control->setCorvanaHelperLoginItem(segment);
    loginItem->setSelectedSegment(m_control->inLoginItems() ? 1 : 0);
}
