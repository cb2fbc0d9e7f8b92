#include "Browsing/CVFilterPathDelegate.h"

#include "Platform/CVSettings.h"
#include "Views/CVFilterPathBar.h"
#include "Views/CVFilterPathPopover.h"

#include <QAction>

using namespace Qt::StringLiterals;

CVFilterPathDelegate::CVFilterPathDelegate(CVSelectionModel *selection, CVSettings *settings, CVFilterPathBar *bar,
    CVFilterPathPopover *popover, QAction *browseQueueItem, std::function<bool()> queueIsEmpty, QObject *parent)
    : QObject(parent)
    , m_selection(selection)
    , m_settings(settings)
    , m_bar(bar)
    , m_popover(popover)
    , m_browseQueueItem(browseQueueItem)
    , m_queueIsEmpty(std::move(queueIsEmpty))
{
    connect(m_selection, &CVSelectionModel::changed, this, &CVFilterPathDelegate::selectionModelChanged);
    connect(m_bar, &CVFilterPathBar::clicked, this, [this] {
        refreshFilterPathBar();
        m_popover->popUpUnder(m_bar);
    });
    connect(m_bar, &CVFilterPathBar::mouseOverChanged, this, &CVFilterPathDelegate::setIsMouseOverFilterPathBar);
    connect(m_popover, &CVFilterPathPopover::segmentClicked, this, &CVFilterPathDelegate::filterPathMenuItemAction);
}

void CVFilterPathDelegate::selectionModelChanged(CVSelectionModel::Pane, CVSelectionModel::Pane listener)
{
    if (listener == CVSelectionModel::Pane::FilterPathBar)
        refreshFilterPathBar();
}

QString CVFilterPathDelegate::filterDescription(const QString &name, bool *inForce) const
{
    const CVSelectionModel *s = m_selection;
    if (name == u"Search"_s) {
        *inForce = !s->searchText().isEmpty();
        return *inForce ? s->searchText() : u"No Search Query"_s;
    }
    if (name == u"Span Filter"_s) {
        *inForce = s->spanFilter() != u"All Tracks"_s;
        return *inForce ? s->spanFilter() : u"All Tracks"_s;
    }
    if (name == u"Media Type"_s) {
        *inForce = s->media() != u"."_s;
        return *inForce ? s->media() : u"All"_s;
    }
    if (name == u"Location"_s) {
        *inForce = s->hasLocation();
        return *inForce ? s->locationTitle() : u"None Selected"_s;
    }
    if (name == u"Playlist"_s) {
        *inForce = s->hasPlaylist();
        return *inForce ? s->playlistName() : u"None Selected"_s;
    }
    *inForce = false;
    return {};
}

void CVFilterPathDelegate::refreshFilterPathBar()
{
    const bool browsing = m_selection->isBrowsingQueue();
    const bool queueEmpty = m_queueIsEmpty();
    const QString source = browsing ? u"Spanning Queue"_s : u"Library"_s;
    const QString sourceTitle = u"Browsing %1"_s.arg(source);
    const QString browse = browsing ? u"Browse Library"_s : queueEmpty ? u"Span Queue Empty"_s : u"Browse Span Queue"_s;
    m_popover->setSourceRow(sourceTitle, browse, browsing || !queueEmpty);
    m_browseQueueItem->setText(browsing ? u"Browse Library"_s : u"Browse Spanning Queue"_s);
    m_browseQueueItem->setEnabled(browsing || !queueEmpty);

    QStringList elements { source };
    const QStringList order = m_settings->stringListValue(CVSettingsKey::FilterPathOrder);
    for (int i = 0; i < order.size() && i < CVFilterPathPopover::FilterRows; ++i) {
        bool inForce = false;
        const QString description = filterDescription(order[i], &inForce);
        m_popover->setFilterRow(i + 1, order[i] + u':', description, inForce);
        if (inForce)
            elements.append(u"%1 : %2"_s.arg(order[i], description));
    }
    const QString separator = u"   \u25B8   "_s;
    QString one, two;
    const qsizetype n = elements.size();
    if (n <= 3) {
        one = sourceTitle;
        two = n == 1 ? u"All Tracks"_s : elements.mid(1).join(separator);
    } else if (n == 4) {
        one = elements.mid(0, 2).join(separator);
        two = elements.mid(2).join(separator);
    } else {
        one = elements.mid(0, 3).join(separator);
        two = elements.mid(3).join(separator);
    }
    if (m_mouseOver)
        two = u"Click to Modify Filters"_s;
    m_bar->setLines(one, two);
}

void CVFilterPathDelegate::setIsMouseOverFilterPathBar(bool over)
{
    m_mouseOver = over;
    refreshFilterPathBar();
}

void CVFilterPathDelegate::filterPathMenuItemAction(int tag, int segment)
{
    const QStringList order = m_settings->stringListValue(CVSettingsKey::FilterPathOrder);
    if (tag == 0) {
        if (segment == 0)
            Q_EMIT browseQueueToggleRequested();
        else
            for (const QString &name : order)
                clearFilter(name);
        return;
    }
    const QString name = order.value(tag - 1);
    const bool last = tag == CVFilterPathPopover::FilterRows;
    switch (segment) {
    case 0:
        clearFilter(name);
        break;
    case 1:
        if (last) {
            moveFilter(name, -1);
        } else {
            for (int i = tag; i < order.size(); ++i)
                clearFilter(order[i]);
        }
        break;
    case 2:
        moveFilter(name, tag == 1 ? 1 : -1);
        break;
    case 3:
        moveFilter(name, 1);
        break;
    default:
        break;
    }
}

void CVFilterPathDelegate::clearFilter(const QString &name)
{
    // The panes follow the model: the buttons, the rows and (through the window) the search field.
    if (name == u"Search"_s)
        Q_EMIT searchClearRequested();
    else if (name == u"Span Filter"_s)
        m_selection->setSpanFilter(u"All Tracks"_s);
    else if (name == u"Media Type"_s)
        m_selection->setMedia(u"All"_s);
    else if (name == u"Location"_s)
        m_selection->setLocation({}, {});
    else if (name == u"Playlist"_s)
        m_selection->setPlaylist({}, {}, CVPredicate::fromText({}));
}

void CVFilterPathDelegate::moveFilter(const QString &name, int offset)
{
    QStringList order = m_settings->stringListValue(CVSettingsKey::FilterPathOrder);
    const qsizetype at = order.indexOf(name);
    if (at < 0)
        return;
    order.removeAt(at);
    order.insert(qBound<qsizetype>(0, at + offset, order.size()), name);
    m_settings->setValue(CVSettingsKey::FilterPathOrder, order);
    m_settings->synchronize();
    refreshFilterPathBar();
}
