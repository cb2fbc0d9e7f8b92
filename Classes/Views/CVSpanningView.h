#pragma once

#include <QWidget>

class QLabel;
class QProgressBar;
class QPushButton;

// The view a run shows in place of the main view: its header, the task line, the progress bar
// with the tracks, bytes, rate and time left under it, the spinner while the player starts,
// and the pause and skip buttons. It only shows: CVRunProgress feeds it, a few times a second.
class CVSpanningView : public QWidget {
    Q_OBJECT

public:
    explicit CVSpanningView(QWidget *parent = nullptr);

    void setHeader(const QString &text);
    QString header() const;
    void setTaskLine(const QString &text, Qt::Alignment alignment);
    QString taskLine() const;
    // maximum 0 with indeterminate false empties the bar.
    void setProgress(double value, double maximum, bool indeterminate);
    void setStatistics(const QString &text);
    QString statistics() const;
    void setWaitingForPlayer(bool waiting);
    bool isWaitingForPlayer() const;
    void setPauseTitle(const QString &title);
    void setSkipTitle(const QString &title);
    void setControlsEnabled(bool enabled);

    QProgressBar *progressBar() const { return m_progress; }
    QPushButton *pauseButton() const { return m_pause; }
    QPushButton *skipButton() const { return m_skip; }

Q_SIGNALS:
    void pauseClicked();
    void skipClicked();

private:
    QLabel *m_header;
    QLabel *m_task;
    QProgressBar *m_progress;
    QLabel *m_statistics;
    QProgressBar *m_spinner;
    QPushButton *m_pause;
    QPushButton *m_skip;
};
