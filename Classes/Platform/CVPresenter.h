#pragma once

#include <QString>

// An alert panel or sheet: a message, an informative text and up to three buttons.
struct CVAlert {
    enum class Style { Warning, Informational, Critical };

    QString title;
    QString text;
    QString defaultButton;
    QString alternateButton;
    QString otherButton;
    Style style = Style::Warning;
    QString icon; // a named image instead of the style's icon ("TrashFull")
    bool centred = false; // the message centred under a light shadow (a run's confirmation)
};

// Every dialog and every piece of load progress goes through one presenter, so the window,
// the command-line tool and the tests each answer them their own way.
class CVPresenter {
public:
    static constexpr int DefaultReturn = 1;
    static constexpr int AlternateReturn = 0;
    static constexpr int OtherReturn = -1;

    virtual ~CVPresenter();

    // Runs an application-modal alert panel and returns which button answered it.
    virtual int runAlertPanel(const CVAlert &alert) = 0;
    // The standard presentation of an error that needs no decision.
    virtual void presentError(const QString &message, const QString &informativeText) = 0;

    virtual void setStatusText(const QString &text);
    virtual void setProgressIndeterminate(bool animating);
    virtual void setProgress(double maximum, double value);
};
