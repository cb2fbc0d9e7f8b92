#include "Preferences/UpdatingPreferences.h"

#include "Platform/CVSettings.h"
#include "Preferences/CVUpdateChecker.h"
#include "Views/CVSegmentedControl.h"

#include <QApplication>
#include <QDateTime>
#include <QLabel>
#include <QLocale>
#include <QPushButton>
#include <QStyle>

using namespace Qt::StringLiterals;

UpdatingPreferences::UpdatingPreferences(CVSettings *settings, CVUpdateChecker *checker, QWidget *parent)
    : CVPreferencesPane(u"Updating"_s,
        QIcon::fromTheme(u"system-software-update"_s, QApplication::style()->standardIcon(QStyle::SP_BrowserReload)),
        parent)
    , m_settings(settings)
    , m_checker(checker)
{
    noFeed = new QLabel(u"This build of Corvana checks for no updates:\nyour distribution's packages bring new "
                        "versions."_s,
        this);
    noFeed->setObjectName(u"noFeed"_s);
    addRow({}, noFeed);

    automaticChecks = new CVSegmentedControl({ u"Off"_s, u"On"_s }, CVSegmentedControl::Mode::SelectOne, this);
    automaticChecks->setObjectName(u"automaticChecks"_s);
    addRow(u"Check for updates automatically:"_s, automaticChecks);
    connect(automaticChecks, &CVSegmentedControl::segmentClicked, this, [this](int segment) {
        m_settings->setValue(CVSettingsKey::SUEnableAutomaticChecks, automaticChecks->tag(segment) == 1);
        reloadNibOutlets();
    });

    checkInterval = new CVSegmentedControl(
        { u"Hourly"_s, u"Daily"_s, u"Weekly"_s, u"Monthly"_s }, CVSegmentedControl::Mode::SelectOne, this);
    checkInterval->setObjectName(u"checkInterval"_s);
    const qint64 seconds[] = { 3600, 86400, 604800, 2629744 };
    for (int i = 0; i < 4; ++i)
        checkInterval->setTag(i, seconds[i]);
    addRow(u"Check:"_s, checkInterval);
    connect(checkInterval, &CVSegmentedControl::segmentClicked, this, [this](int segment) {
        m_settings->setValue(CVSettingsKey::SUScheduledCheckInterval, checkInterval->tag(segment));
    });

    checkNow = new QPushButton(u"Check &Now"_s, this);
    checkNow->setObjectName(u"checkNow"_s);
    addRow({}, checkNow);
    connect(checkNow, &QPushButton::clicked, this, [this] {
        m_checker->checkForUpdates(true);
        checkNow->setEnabled(!m_checker->isChecking());
    });

    lastCheck = new QLabel(this);
    lastCheck->setObjectName(u"lastCheck"_s);
    lastCheck->setTextInteractionFlags(Qt::TextSelectableByMouse);
    addRow(u"Last check:"_s, lastCheck);

    m_settings->observe(CVSettingsKey::SULastCheckTime, this, [this] { showLastCheck(); });
    connect(m_checker, &CVUpdateChecker::checkFinished, this, [this](const CVUpdateChecker::Result &result) {
        showLastCheck();
        lastCheck->setText(lastCheck->text() + u"\n"_s + result.message);
        checkNow->setEnabled(!m_checker->feedUrl().isEmpty());
    });
}

void UpdatingPreferences::reloadNibOutlets()
{
    const bool hasFeed = !m_checker->feedUrl().isEmpty();
    noFeed->setVisible(!hasFeed);
    const bool automatic = m_settings->boolValue(CVSettingsKey::SUEnableAutomaticChecks);
    automaticChecks->setSelectedSegment(automaticChecks->segmentForTag(automatic ? 1 : 0));
    // A stored interval that is none of the segments' shows none selected.
    checkInterval->setSelectedSegment(
        checkInterval->segmentForTag(m_settings->integerValue(CVSettingsKey::SUScheduledCheckInterval)));
    automaticChecks->setEnabled(hasFeed);
    checkInterval->setEnabled(hasFeed && automatic);
    checkNow->setEnabled(hasFeed && !m_checker->isChecking());
    showLastCheck();
}

void UpdatingPreferences::showLastCheck()
{
    const qint64 when = m_settings->integerValue(CVSettingsKey::SULastCheckTime);
    lastCheck->setText(
        when > 0 ? QLocale().toString(QDateTime::fromSecsSinceEpoch(when), QLocale::LongFormat) : u"Never"_s);
}
