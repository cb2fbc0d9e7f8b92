#include "Preferences/AdvancedPreferences.h"

#include "Platform/CVSettings.h"
#include "Views/CVSegmentedControl.h"

#include <QApplication>
#include <QCheckBox>
#include <QLabel>
#include <QStyle>

using namespace Qt::StringLiterals;

namespace {

const QStringList kWindowsNames { u"auto"_s, u"always"_s, u"never"_s };
const QStringList kPlayers { u"auto"_s, u"itunes-file"_s, u"dbus"_s, u"rhythmbox"_s, u"strawberry"_s };

CVSegmentedControl *offOn(QWidget *parent, const QString &name)
{
    auto *c = new CVSegmentedControl({ u"Off"_s, u"On"_s }, CVSegmentedControl::Mode::SelectOne, parent);
    c->setObjectName(name);
    return c;
}

} // namespace

AdvancedPreferences::AdvancedPreferences(CVSettings *settings, QWidget *parent)
    : CVPreferencesPane(u"Advanced"_s,
        QIcon::fromTheme(
            u"preferences-other"_s, QApplication::style()->standardIcon(QStyle::SP_FileDialogDetailedView)),
        parent)
    , m_settings(settings)
{
    saveQueue = offOn(this, u"saveQueue"_s);
    addRow(u"Save the spanning queue:"_s, saveQueue);
    connect(saveQueue, &CVSegmentedControl::segmentClicked, this,
        [this](int segment) { m_settings->setValue(CVSettingsKey::AutosaveSpanningQueue, segment == 1); });

    saveSpanLocation = offOn(this, u"saveSpanLocation"_s);
    addRow(u"Save the span location:"_s, saveSpanLocation);
    connect(saveSpanLocation, &CVSegmentedControl::segmentClicked, this, [this](int segment) {
        m_settings->setValue(CVSettingsKey::AutosaveSpanLocation, segment == 1);
        reloadNibOutlets();
    });

    clearSpanLocation = new QCheckBox(u"&Clear the span location after each span"_s, this);
    clearSpanLocation->setObjectName(u"clearSpanLocation"_s);
    addRow({}, clearSpanLocation);
    connect(clearSpanLocation, &QCheckBox::clicked, this,
        [this](bool checked) { m_settings->setValue(CVSettingsKey::ClearSpanLocationAfterSpan, checked); });

    QStringList counts;
    for (int i = 0; i <= MaximumReattempts; ++i)
        counts.append(QString::number(i));
    reattempts = new CVSegmentedControl(counts, CVSegmentedControl::Mode::SelectOne, this);
    reattempts->setObjectName(u"reattempts"_s);
    addRow(u"Full span reattempts:"_s, reattempts);
    connect(reattempts, &CVSegmentedControl::segmentClicked, this, &AdvancedPreferences::setFullSpanReattempts);

    windowsFileNames = new CVSegmentedControl(
        { u"When Needed"_s, u"Always"_s, u"Never"_s }, CVSegmentedControl::Mode::SelectOne, this);
    windowsFileNames->setObjectName(u"windowsFileNames"_s);
    addRow(u"Windows-safe file names:"_s, windowsFileNames);
    connect(windowsFileNames, &CVSegmentedControl::segmentClicked, this,
        [this](int segment) { m_settings->setValue(CVSettingsKey::WindowsFileNames, kWindowsNames.value(segment)); });
    auto *namesNote = new QLabel(u"“When Needed” follows the span location's file system."_s, this);
    namesNote->setForegroundRole(QPalette::PlaceholderText);
    addRow({}, namesNote);

    player = new CVSegmentedControl(
        { u"Automatic"_s, u"iTunes Library File"_s, u"D-Bus Player"_s, u"Rhythmbox"_s, u"Strawberry"_s },
        CVSegmentedControl::Mode::SelectOne, this);
    player->setObjectName(u"player"_s);
    addRow(u"Player:"_s, player);
    connect(player, &CVSegmentedControl::segmentClicked, this,
        [this](int segment) { m_settings->setValue(CVSettingsKey::Player, kPlayers.value(segment)); });
    auto *playerNote = new QLabel(u"A new choice of player takes effect at the next reload of the library."_s, this);
    playerNote->setForegroundRole(QPalette::PlaceholderText);
    addRow({}, playerNote);
    relaunchPlayer
        = new QCheckBox(u"Start &Strawberry again after a run that quit it, also when it was not playing"_s, this);
    relaunchPlayer->setObjectName(u"relaunchPlayer"_s);
    addRow({}, relaunchPlayer);
    connect(relaunchPlayer, &QCheckBox::clicked, this,
        [this](bool checked) { m_settings->setValue(CVSettingsKey::RelaunchPlayerAfterRun, checked); });

    // A run may start or end while the pane is open.
    m_settings->observe(CVSettingsKey::IsSpanning, this, [this] { updateReattemptsEnabled(); });
}

void AdvancedPreferences::reloadNibOutlets()
{
    saveQueue->setSelectedSegment(m_settings->boolValue(CVSettingsKey::AutosaveSpanningQueue) ? 1 : 0);
    const bool saveLocation = m_settings->boolValue(CVSettingsKey::AutosaveSpanLocation);
    saveSpanLocation->setSelectedSegment(saveLocation ? 1 : 0);
    // Without a saved location there is nothing to keep, so the box shows what happens anyway.
    clearSpanLocation->setEnabled(saveLocation);
    clearSpanLocation->setChecked(!saveLocation || m_settings->boolValue(CVSettingsKey::ClearSpanLocationAfterSpan));
    reattempts->setSelectedSegment(int(m_settings->integerValue(CVSettingsKey::FullSpanReattempts)));
    updateReattemptsEnabled();
    windowsFileNames->setSelectedSegment(
        int(kWindowsNames.indexOf(m_settings->stringValue(CVSettingsKey::WindowsFileNames))));
    player->setSelectedSegment(int(kPlayers.indexOf(m_settings->stringValue(CVSettingsKey::Player))));
    relaunchPlayer->setChecked(m_settings->boolValue(CVSettingsKey::RelaunchPlayerAfterRun));
}

void AdvancedPreferences::setFullSpanReattempts(int segment)
{
    // The run under way reads the count as it goes.
    if (m_settings->boolValue(CVSettingsKey::IsSpanning)) {
        reattempts->setSelectedSegment(int(m_settings->integerValue(CVSettingsKey::FullSpanReattempts)));
        return;
    }
    m_settings->setValue(CVSettingsKey::FullSpanReattempts, segment);
}

void AdvancedPreferences::updateReattemptsEnabled()
{
    reattempts->setEnabled(!m_settings->boolValue(CVSettingsKey::IsSpanning));
}
