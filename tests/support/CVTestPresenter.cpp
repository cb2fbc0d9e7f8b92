#include "CVTestPresenter.h"

int CVTestPresenter::runAlertPanel(const CVAlert &alert)
{
    alerts.append(alert);
    return m_answers.isEmpty() ? DefaultReturn : m_answers.takeFirst();
}

void CVTestPresenter::presentError(const QString &message, const QString &informativeText)
{
    errors.append(message + u'\n' + informativeText);
}
