#pragma once

#include "Browsing/CVSelectionModel.h"

#include <QObject>
#include <QString>

#include <functional>

class CVFilterPathBar;
class CVFilterPathPopover;
class CVSettings;
class QAction;

// The filter path bar and its pop-over: which filters are in force, in the stored order, and the
// pop-over's clear and move buttons. It listens to the selection model as the panes do; clearing
// a filter sets the model's value, and the panes follow. The search field and the queue browsing
// are the window's, so those two go out by signal.
class CVFilterPathDelegate : public QObject {
    Q_OBJECT

public:
    CVFilterPathDelegate(CVSelectionModel *selection, CVSettings *settings, CVFilterPathBar *bar,
        CVFilterPathPopover *popover, QAction *browseQueueItem, std::function<bool()> queueIsEmpty,
        QObject *parent = nullptr);

    void refreshFilterPathBar();
    // A pop-over segment: see CVFilterPathPopover for the tags and segments.
    void filterPathMenuItemAction(int tag, int segment);
    void clearFilter(const QString &name);
    void moveFilter(const QString &name, int offset);
    // Line two invites a click while the mouse is over the bar.
    void setIsMouseOverFilterPathBar(bool over);

Q_SIGNALS:
    void browseQueueToggleRequested();
    void searchClearRequested();

private:
    void selectionModelChanged(CVSelectionModel::Pane origin, CVSelectionModel::Pane listener);
    QString filterDescription(const QString &name, bool *inForce) const;

    CVSelectionModel *m_selection;
    CVSettings *m_settings;
    CVFilterPathBar *m_bar;
    CVFilterPathPopover *m_popover;
    QAction *m_browseQueueItem;
    std::function<bool()> m_queueIsEmpty;
    bool m_mouseOver = false;
};
