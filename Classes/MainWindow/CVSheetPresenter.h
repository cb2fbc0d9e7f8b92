#pragma once

#include "Platform/CVPresenter.h"

#include <QList>
#include <QObject>
#include <QPointer>

#include <functional>

class QMessageBox;
class QWidget;

// Every sheet and panel of the window goes through here. A sheet is a window-modal message
// box on the main window, answered later in its completion; a panel is application-modal and
// answers at once (from the load thread it runs on the main thread, the load waiting for it).
// Tests switch on answering mode: panels take queued answers (else the default button),
// sheets take a queued answer on the next turn of the event loop or wait for answerSheet().
class CVSheetPresenter : public QObject, public CVPresenter {
    Q_OBJECT

public:
    using Completion = std::function<void(int returnCode)>;

    explicit CVSheetPresenter(QObject *parent = nullptr);
    ~CVSheetPresenter() override;

    void setWindow(QWidget *window) { m_window = window; }

    // CVPresenter; callable from any thread.
    int runAlertPanel(const CVAlert &alert) override;
    void presentError(const QString &message, const QString &informativeText) override;
    void setStatusText(const QString &text) override;
    void setProgressIndeterminate(bool animating) override;
    void setProgress(double maximum, double value) override;

    // A sheet on the main window; one at a time, later ones wait their turn.
    void beginSheet(const CVAlert &alert, Completion completion);
    bool hasOpenSheet() const { return m_open != nullptr; }

    // Answering mode for tests and screenshots: nothing is shown that would wait for a person.
    void setAnswering(bool on) { m_answering = on; }
    void queueAnswer(int returnCode) { m_answers.append(returnCode); }
    // The sheet on screen, answered as if its button had been pressed.
    void answerSheet(int returnCode);
    const CVAlert &openSheet() const;
    // Every sheet, panel and error shown, in order (errors as alerts titled with the message).
    const QList<CVAlert> &shownAlerts() const { return m_shown; }
    void clearShownAlerts() { m_shown.clear(); }

Q_SIGNALS:
    void statusTextChanged(const QString &text);
    void progressIndeterminateChanged(bool animating);
    void progressChanged(double maximum, double value);
    void sheetShown(const CVAlert &alert);

private:
    struct Pending {
        CVAlert alert;
        Completion completion;
    };
    struct Open;

    int runPanelOnMainThread(const CVAlert &alert);
    void showNextSheet();
    void finishSheet(int returnCode);
    QMessageBox *makeBox(const CVAlert &alert, QWidget *parent, QList<QPair<QObject *, int>> *buttons) const;

    QPointer<QWidget> m_window;
    bool m_answering = false;
    QList<int> m_answers;
    QList<CVAlert> m_shown;
    QList<Pending> m_pending;
    std::unique_ptr<Open> m_open;
};
