#pragma once

#include "Platform/CVSettings.h"
#include "Preferences/CVPreferencesPane.h"

#include <utility>
#include <vector>

class CVSegmentedControl;
class QCheckBox;

// Search fields, the browser's media at start, and how the browser and the window look.
class GeneralPreferences : public CVPreferencesPane {
    Q_OBJECT

public:
    explicit GeneralPreferences(CVSettings *settings, QWidget *parent = nullptr);

    void reloadNibOutlets() override;

    CVSegmentedControl *searchFields = nullptr; // 0 Genre, 1 Artist, 2 Album, 3 Name
    CVSegmentedControl *browserMedia = nullptr; // 0 All, 1 Music, 2 the last one chosen
    QCheckBox *groupCompilations = nullptr;
    QCheckBox *useAlbumArtists = nullptr;
    QCheckBox *browserOnTop = nullptr;
    QCheckBox *animateWindow = nullptr;
    QCheckBox *dropSounds = nullptr;

private:
    void setSearchFields();
    void setDefaultBrowserMedia(int segment);
    QCheckBox *addBox(const QString &text, CVSettingsKey key);

    CVSettings *m_settings;
    std::vector<std::pair<QCheckBox *, CVSettingsKey>> m_boxes;
};
