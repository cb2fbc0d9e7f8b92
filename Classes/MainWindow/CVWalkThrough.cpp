#include "MainWindow/CVWalkThrough.h"

#include "Views/CVSpanQueueDropZone.h"

using namespace Qt::StringLiterals;

CVWalkThrough::CVWalkThrough(CVSelectionModel *selection, CVSpanQueueDropZone *zone, Context context, QObject *parent)
    : QObject(parent)
    , m_selection(selection)
    , m_zone(zone)
    , m_context(std::move(context))
{
    connect(m_selection, &CVSelectionModel::changed, this, &CVWalkThrough::selectionModelChanged);
    connect(m_zone, &CVSpanQueueDropZone::mouseOverChanged, this, &CVWalkThrough::setIsMouseOverSpanQueueDropZone);
    connect(m_zone, &CVSpanQueueDropZone::dragActiveChanged, this, [this](bool active) {
        m_dragOver = active;
        setWalkThroughTextToProperStep();
    });
}

void CVWalkThrough::selectionModelChanged(CVSelectionModel::Pane, CVSelectionModel::Pane listener)
{
    if (listener == CVSelectionModel::Pane::WalkThrough)
        setWalkThroughTextToProperStep();
}

void CVWalkThrough::setWalkThroughTextTo(const QString &text, const QString &step)
{
    m_texts.insert(step, text);
    setWalkThroughTextToProperStep();
}

QString CVWalkThrough::walkThroughText() const
{
    return m_zone->walkthroughString();
}

void CVWalkThrough::setWalkThroughTextToProperStep()
{
    const bool queueEmpty = m_context.queueIsEmpty();
    const bool restore = m_context.restoreMode();
    QString step;
    if (m_mouseOver && !m_dragOver)
        step = u"SpanQueueButtonText"_s;
    else if (m_selection->isBrowsingQueue())
        step = u"BrowseSpanQueue"_s;
    else if (restore && !queueEmpty)
        step = u"ReadyToRestore"_s;
    else if (m_context.hasSpanLocation() && !queueEmpty)
        step = u"ReadyToSpan"_s;
    else if (!queueEmpty)
        step = u"ChooseLocation"_s;
    // Blank until the browser has stored its texts.
    else if (m_texts.contains(u"DragTracksSpan"_s) || m_texts.contains(u"DragTracksRestore"_s))
        step = restore ? u"DragTracksRestore"_s : u"DragTracksSpan"_s;
    m_zone->setWalkthroughString(m_texts.value(step));
}

void CVWalkThrough::setIsMouseOverSpanQueueDropZone(bool over)
{
    m_mouseOver = over;
    if (over) {
        m_texts.insert(u"SpanQueueButtonText"_s,
            m_selection->isBrowsingQueue() ? u"Browsing Spanning Queue \u2013 Click to Browse Library"_s
                : m_context.queueIsEmpty() ? u"Spanning Queue Empty - Drag Something into Here"_s
                                           : u"Click to Browse Spanning Queue"_s);
    }
    setWalkThroughTextToProperStep();
}
