#pragma once

#include "Platform/CVPresenter.h"

#include <QList>
#include <QStringList>

// A presenter that tests answer in advance and read back.
class CVTestPresenter : public CVPresenter {
public:
    // The next alert gets this answer; with none queued, the default button.
    void queueAnswer(int answer) { m_answers.append(answer); }

    int runAlertPanel(const CVAlert &alert) override;
    void presentError(const QString &message, const QString &informativeText) override;
    void setStatusText(const QString &text) override { statusTexts.append(text); }
    void setProgress(double maximum, double value) override
    {
        lastProgressMaximum = maximum;
        lastProgressValue = value;
    }

    QList<CVAlert> alerts;
    QStringList errors;
    QStringList statusTexts;
    double lastProgressMaximum = 0;
    double lastProgressValue = 0;

private:
    QList<int> m_answers;
};
