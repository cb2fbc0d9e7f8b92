#pragma once

#include "Preferences/CVPreferencesPane.h"

class CVSegmentedControl;
class CVSettings;
class QCheckBox;

// What is kept between starts (queue, span location), how often a failed full span is tried
// again, how destination names are made, and which player's library is read.
class AdvancedPreferences : public CVPreferencesPane {
    Q_OBJECT

public:
    static constexpr int MaximumReattempts = 5;

    explicit AdvancedPreferences(CVSettings *settings, QWidget *parent = nullptr);

    void reloadNibOutlets() override;

    CVSegmentedControl *saveQueue = nullptr; // segment 1 = on
    CVSegmentedControl *saveSpanLocation = nullptr; // segment 1 = on
    QCheckBox *clearSpanLocation = nullptr;
    CVSegmentedControl *reattempts = nullptr; // segment index = count
    CVSegmentedControl *windowsFileNames = nullptr; // auto, always, never
    CVSegmentedControl *player = nullptr; // auto, itunes-file, dbus, rhythmbox, strawberry
    QCheckBox *relaunchPlayer = nullptr;

private:
    void setFullSpanReattempts(int segment);
    void updateReattemptsEnabled();

    CVSettings *m_settings;
};
