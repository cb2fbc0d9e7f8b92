#pragma once

#include <QWidget>

class QLabel;
class QProgressBar;

// The view the window shows while a load runs: the program's name, a progress bar and the
// status line of the step at work.
class CVLoadingView : public QWidget {
    Q_OBJECT

public:
    explicit CVLoadingView(QWidget *parent = nullptr);

    QString statusText() const;
    QProgressBar *progressBar() const { return m_progress; }

public Q_SLOTS:
    void setStatusText(const QString &text);
    void setProgressIndeterminate(bool animating);
    void setProgress(double maximum, double value);

private:
    QLabel *m_status;
    QProgressBar *m_progress;
};
