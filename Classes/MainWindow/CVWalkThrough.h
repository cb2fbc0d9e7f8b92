#pragma once

#include "Browsing/CVSelectionModel.h"

#include <QHash>
#include <QObject>
#include <QString>

#include <functional>

class CVSpanQueueDropZone;

// The line on the queue's background that says what to do next. Each step has its text, set as
// the window learns it (the browser's texts after a load, the span location's name); the step
// shown follows the queue, the mode, the span location and the mouse over the zone. It listens
// to the selection model as the panes do.
class CVWalkThrough : public QObject {
    Q_OBJECT

public:
    // What the rest of the window answers.
    struct Context {
        std::function<bool()> restoreMode;
        std::function<bool()> hasSpanLocation;
        std::function<bool()> queueIsEmpty;
    };

    CVWalkThrough(CVSelectionModel *selection, CVSpanQueueDropZone *zone, Context context, QObject *parent = nullptr);

    // Stores a step's text and shows the proper step.
    void setWalkThroughTextTo(const QString &text, const QString &step);
    void setWalkThroughTextToProperStep();
    // Over the zone (and not dragging) the line says what a click does.
    void setIsMouseOverSpanQueueDropZone(bool over);
    QString walkThroughText() const;

private:
    void selectionModelChanged(CVSelectionModel::Pane origin, CVSelectionModel::Pane listener);

    CVSelectionModel *m_selection;
    CVSpanQueueDropZone *m_zone;
    Context m_context;
    QHash<QString, QString> m_texts;
    bool m_mouseOver = false;
    bool m_dragOver = false;
};
