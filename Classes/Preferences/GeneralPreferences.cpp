#include "Preferences/GeneralPreferences.h"

#include "Platform/CVSettings.h"
#include "Views/CVSegmentedControl.h"

#include <QApplication>
#include <QCheckBox>
#include <QFormLayout>
#include <QStyle>

using namespace Qt::StringLiterals;

namespace {

const QStringList kSearchFields { u"Genre"_s, u"Artist"_s, u"Album"_s, u"Name"_s };

} // namespace

GeneralPreferences::GeneralPreferences(CVSettings *settings, QWidget *parent)
    : CVPreferencesPane(u"General"_s,
        QIcon::fromTheme(u"preferences-system"_s, QApplication::style()->standardIcon(QStyle::SP_ComputerIcon)), parent)
    , m_settings(settings)
{
    searchFields = new CVSegmentedControl(kSearchFields, CVSegmentedControl::Mode::SelectAny, this);
    searchFields->setObjectName(u"searchFields"_s);
    addRow(u"Search in:"_s, searchFields);
    connect(searchFields, &CVSegmentedControl::segmentClicked, this, [this] { setSearchFields(); });

    browserMedia
        = new CVSegmentedControl({ u"All"_s, u"Music"_s, u"Last Chosen"_s }, CVSegmentedControl::Mode::SelectOne, this);
    browserMedia->setObjectName(u"browserMedia"_s);
    addRow(u"Browser shows at start:"_s, browserMedia);
    connect(browserMedia, &CVSegmentedControl::segmentClicked, this, &GeneralPreferences::setDefaultBrowserMedia);

    groupCompilations = addBox(u"&Group compilations in the browser"_s, CVSettingsKey::GroupCompilationsInBrowser);
    useAlbumArtists = addBox(u"Use album &artists in the browser"_s, CVSettingsKey::UseAlbumArtistsInBrowser);
    browserOnTop = addBox(u"Column browser on &top (else on the left)"_s, CVSettingsKey::ColumnBrowserOnTop);
    animateWindow = addBox(u"A&nimate changes of the main view"_s, CVSettingsKey::CubeAnimateWindow);
    dropSounds = addBox(u"&Sounds when the spanning queue changes"_s, CVSettingsKey::PlaySpanQueueDropSounds);
}

QCheckBox *GeneralPreferences::addBox(const QString &text, CVSettingsKey key)
{
    auto *box = new QCheckBox(text, this);
    box->setObjectName(CVSettings::name(key));
    m_boxes.emplace_back(box, key);
    addRow({}, box);
    connect(box, &QCheckBox::clicked, this, [this, key](bool checked) { m_settings->setValue(key, checked); });
    return box;
}

void GeneralPreferences::reloadNibOutlets()
{
    const QStringList fields = m_settings->stringListValue(CVSettingsKey::SearchFields);
    for (int i = 0; i < kSearchFields.size(); ++i)
        searchFields->setSelected(i, fields.contains(kSearchFields[i]));
    if (m_settings->boolValue(CVSettingsKey::RememberLastBrowserMedia))
        browserMedia->setSelectedSegment(2);
    else
        browserMedia->setSelectedSegment(
            m_settings->stringValue(CVSettingsKey::DefaultBrowserMedia) == u"All"_s ? 0 : 1);
    for (const auto &[box, key] : m_boxes)
        box->setChecked(m_settings->boolValue(key));
}

void GeneralPreferences::setSearchFields()
{
    QStringList fields;
    for (int i = 0; i < kSearchFields.size(); ++i)
        if (searchFields->isSelected(i))
            fields.append(kSearchFields[i]);
    // A search has to look somewhere: with nothing chosen, it looks at the names.
    if (fields.isEmpty()) {
        fields.append(u"Name"_s);
        searchFields->setSelected(3, true);
    }
    m_settings->setValue(CVSettingsKey::SearchFields, fields);
}

void GeneralPreferences::setDefaultBrowserMedia(int segment)
{
    if (segment == 2) {
        m_settings->setValue(CVSettingsKey::RememberLastBrowserMedia, true);
        return;
    }
    m_settings->setValue(CVSettingsKey::DefaultBrowserMedia, segment == 0 ? u"All"_s : u"Music"_s);
    m_settings->setValue(CVSettingsKey::RememberLastBrowserMedia, false);
}
