#pragma once

#include "Platform/CVPresenter.h"

// The command-line tool's presenter: texts go to standard error and every alert is
// answered with its default button, since nobody is there to choose.
class CVStandardErrorPresenter : public CVPresenter {
public:
    int runAlertPanel(const CVAlert &alert) override;
    void presentError(const QString &message, const QString &informativeText) override;
};
