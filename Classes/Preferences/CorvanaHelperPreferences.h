#pragma once

#include "Platform/CVHUserDefaults.h"
#include "Preferences/CVPreferencesPane.h"

#include <functional>
#include <vector>

class CVHelperApplicationControl;
class CVSegmentedControl;
class CVSettings;
class QCheckBox;
class QLabel;
class QPushButton;

// Corvana Helper's own settings (its settings file, shared with the helper), its autostart
// entry, and starting it. A change that needs the helper restarted is stored at once, but the
// restart is refused with a beep while a run is under way.
class CorvanaHelperPreferences : public CVPreferencesPane {
    Q_OBJECT

public:
    // What the pane does to the helper process; tests put recorders here.
    struct HelperActions {
        std::function<void()> launch;
        std::function<void()> quit;
        std::function<void()> beep;
    };

    CorvanaHelperPreferences(CVSettings *settings, CVHelperApplicationControl *control, CVHUserDefaults *helperDefaults,
        QWidget *parent = nullptr);

    void setHelperActions(HelperActions actions) { m_actions = std::move(actions); }
    void reloadNibOutlets() override;

    void launchCorvanaHelperAction();
    void setCorvanaHelperMenubarItem(int segment);
    void setCorvanaHelperAlwaysRun(int segment);
    void setCorvanaHelperLoginItem(int segment);

    QLabel *helperPath = nullptr;
    CVSegmentedControl *menubarItem = nullptr; // segment = value
    CVSegmentedControl *alwaysRun = nullptr; // segment = value
    CVSegmentedControl *loginItem = nullptr; // segment 1 = started at login
    QCheckBox *loginItemAlert = nullptr; // checked = suppressed
    QCheckBox *notNecessaryAlert = nullptr; // checked = suppressed
    // Checked = the warning is shown (the keys store the opposite).
    QCheckBox *warnWhenPlayerLaunches = nullptr;
    QCheckBox *warnWhenDrivesUnmount = nullptr;
    QCheckBox *warnWhenFilesMissing = nullptr;
    QPushButton *launchHelper = nullptr;

private:
    // A box that shows (inverted: the opposite of) one of the helper's settings.
    struct Box {
        QCheckBox *box;
        CVHSettingsKey key;
        bool inverted;
    };
    QCheckBox *addBox(const QString &text, CVHSettingsKey key, bool inverted);
    bool isSpanning() const;

    CVSettings *m_settings;
    CVHelperApplicationControl *m_control;
    CVHUserDefaults *m_helperDefaults;
    HelperActions m_actions;
    std::vector<Box> m_boxes;
};
