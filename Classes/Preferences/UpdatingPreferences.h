#pragma once

#include "Preferences/CVPreferencesPane.h"

class CVSegmentedControl;
class CVSettings;
class CVUpdateChecker;
class QLabel;
class QPushButton;

// Whether and how often the program looks for a newer version, and a check by hand.
class UpdatingPreferences : public CVPreferencesPane {
    Q_OBJECT

public:
    UpdatingPreferences(CVSettings *settings, CVUpdateChecker *checker, QWidget *parent = nullptr);

    void reloadNibOutlets() override;

    CVSegmentedControl *automaticChecks = nullptr; // tag 1 = on
    CVSegmentedControl *checkInterval = nullptr; // tags: the interval in seconds
    QPushButton *checkNow = nullptr;
    QLabel *lastCheck = nullptr;
    QLabel *noFeed = nullptr;

private:
    void showLastCheck();

    CVSettings *m_settings;
    CVUpdateChecker *m_checker;
};
