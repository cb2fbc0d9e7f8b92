#include "Browsing/CVItemInformationDelegate.h"

#include "Library/CVFormatters.h"
#include "Library/CVTrack.h"
#include "Platform/CVSettings.h"
#include "Views/CVScreenFit.h"

#include <QDateTime>
#include <QFormLayout>
#include <QGuiApplication>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QScreen>
#include <QStackedWidget>
#include <QTabBar>
#include <QVBoxLayout>

using namespace Qt::StringLiterals;

namespace {

constexpr CVSettingsKey kFrameKey = CVSettingsKey::TrackInformationWindowFrame;

bool samePath(const QString &a, const QString &b)
{
    return a.compare(b, Qt::CaseInsensitive) == 0;
}

// The panel writes its dates its own way: 03/14/2009 at 09:05:07 PM.
QString panelDate(const CVTrack &t, CVAttr a)
{
    if (!t.has(a))
        return {};
    return QDateTime::fromSecsSinceEpoch(t.date(a)).toString(u"MM/dd/yyyy 'at' hh:mm:ss AP"_s);
}

} // namespace

CVItemInformationDelegate::CVItemInformationDelegate(CVSettings *settings, QWidget *parentWindow, QObject *parent)
    : QObject(parent)
    , m_settings(settings)
{
    auto *window = new QWidget(parentWindow, Qt::Tool);
    m_window = window;
    window->setWindowTitle(u"Track Information"_s);
    window->setAccessibleName(u"Track Information"_s);
    window->setObjectName(u"CVTrackInformationWindow"_s);
    window->setMinimumWidth(420);

    m_lineOne = new QLabel(window);
    QFont big = m_lineOne->font();
    big.setBold(true);
    big.setPointSizeF(big.pointSizeF() * 1.25);
    m_lineOne->setFont(big);
    m_lineTwo = new QLabel(window);
    m_lineThree = new QLabel(window);
    for (QLabel *l : { m_lineOne, m_lineTwo, m_lineThree }) {
        l->setTextInteractionFlags(Qt::TextSelectableByMouse);
        l->setWordWrap(true);
    }
    m_lineOne->setAccessibleName(u"Name"_s);
    m_lineTwo->setAccessibleName(u"Artist and album"_s);
    m_lineThree->setAccessibleName(u"Time and size"_s);

    m_sections = new QTabBar(window);
    m_sections->setAccessibleName(u"Information section"_s);
    for (const QString &title : { u"File"_s, u"Track"_s, u"Video"_s, u"Span"_s })
        m_sections->addTab(title);
    m_sections->setExpanding(false);
    m_stack = new QStackedWidget(window);

    auto *file = new QWidget(m_stack);
    addField(file, u"kind"_s, u"Kind:"_s);
    addField(file, u"bitRate"_s, u"Bit rate:"_s);
    addField(file, u"sampleRate"_s, u"Sample rate:"_s);
    addField(file, u"dateModified"_s, u"Date modified:"_s);
    addField(file, u"playCount"_s, u"Play count:"_s);
    addField(file, u"lastPlayed"_s, u"Last played:"_s);
    addField(file, u"location"_s, u"Location:"_s);
    m_locationNote = new QLabel(u"The file lies at its span location."_s, file);
    m_locationNote->setAccessibleName(u"Location note"_s);
    m_locationNote->setEnabled(false);
    static_cast<QFormLayout *>(file->layout())->addRow(QString(), m_locationNote);

    auto *track = new QWidget(m_stack);
    addField(track, u"name"_s, u"Name:"_s);
    addField(track, u"artist"_s, u"Artist:"_s);
    addField(track, u"albumArtist"_s, u"Album artist:"_s);
    addField(track, u"album"_s, u"Album:"_s);
    addField(track, u"grouping"_s, u"Grouping:"_s);
    addField(track, u"composer"_s, u"Composer:"_s);
    addField(track, u"genre"_s, u"Genre:"_s);
    addField(track, u"year"_s, u"Year:"_s);
    addField(track, u"bpm"_s, u"BPM:"_s);
    addField(track, u"comments"_s, u"Comments:"_s);
    addField(track, u"compilation"_s, u"Part of a compilation:"_s);
    addField(track, u"trackNumber"_s, u"Track number:"_s);
    addField(track, u"discNumber"_s, u"Disc number:"_s);

    auto *video = new QWidget(m_stack);
    addField(video, u"show"_s, u"Show:"_s);
    addField(video, u"season"_s, u"Season:"_s);
    addField(video, u"episodeID"_s, u"Episode ID:"_s);
    addField(video, u"episodeNumber"_s, u"Episode number:"_s);

    auto *span = new QWidget(m_stack);
    addField(span, u"spanOverview"_s, u"State:"_s);
    addField(span, u"spanSummary"_s, u"Last change:"_s);
    addField(span, u"spanLocation"_s, u"Span location:"_s);
    addField(span, u"playerLocation"_s, u"Player location:"_s);
    addField(span, u"originalLocation"_s, u"Original location:"_s);

    for (QWidget *section : { file, track, video, span })
        m_stack->addWidget(section);

    auto *buttons = new QHBoxLayout;
    const std::pair<QString, void (CVItemInformationDelegate::*)()> actions[] = {
        { u"Show in File Manager"_s, &CVItemInformationDelegate::showInFinderRequested },
        { u"Reveal in Player"_s, &CVItemInformationDelegate::revealInITunesRequested },
        { u"Play in Player"_s, &CVItemInformationDelegate::playInITunesRequested },
    };
    buttons->addStretch(1);
    for (const auto &[title, signal] : actions) {
        auto *b = new QPushButton(title, window);
        b->setAccessibleName(title);
        connect(b, &QPushButton::clicked, this, signal);
        buttons->addWidget(b);
        m_buttons.append(b);
    }

    auto *layout = new QVBoxLayout(window);
    layout->addWidget(m_lineOne);
    layout->addWidget(m_lineTwo);
    layout->addWidget(m_lineThree);
    layout->addWidget(m_sections, 0, Qt::AlignHCenter);
    layout->addWidget(m_stack, 1);
    layout->addLayout(buttons);

    connect(m_sections, &QTabBar::tabBarClicked, this, &CVItemInformationDelegate::setInfoSectionAction);
    clearTrackInformation();
}

CVItemInformationDelegate::~CVItemInformationDelegate() = default;

QLabel *CVItemInformationDelegate::addField(QWidget *section, const QString &name, const QString &label)
{
    auto *form = qobject_cast<QFormLayout *>(section->layout());
    if (!form) {
        form = new QFormLayout(section);
        form->setFieldGrowthPolicy(QFormLayout::AllNonFixedFieldsGrow);
        form->setLabelAlignment(Qt::AlignRight);
    }
    auto *value = new QLabel(section);
    value->setTextInteractionFlags(Qt::TextSelectableByMouse);
    value->setWordWrap(true);
    value->setAccessibleName(QString(label).remove(u':'));
    form->addRow(label, value);
    m_fields.insert(name, value);
    return value;
}

void CVItemInformationDelegate::setField(const QString &name, const QString &text)
{
    if (QLabel *l = m_fields.value(name))
        l->setText(text);
}

QString CVItemInformationDelegate::fieldText(const QString &field) const
{
    if (field == u"lineOne"_s)
        return m_lineOne->text();
    if (field == u"lineTwo"_s)
        return m_lineTwo->text();
    if (field == u"lineThree"_s)
        return m_lineThree->text();
    const QLabel *l = m_fields.value(field);
    return l ? l->text() : QString();
}

bool CVItemInformationDelegate::isLocationNoteVisible() const
{
    return !m_locationNote->isHidden();
}

int CVItemInformationDelegate::currentSection() const
{
    return m_stack->currentIndex();
}

QWidget *CVItemInformationDelegate::sectionView(int section) const
{
    return m_stack->widget(section);
}

bool CVItemInformationDelegate::isSectionControlVisible() const
{
    return !m_sections->isHidden();
}

void CVItemInformationDelegate::loadTrackInformation(const CVTrack *track)
{
    if (!track) {
        clearTrackInformation();
        return;
    }
    const CVTrack &t = *track;
    auto text = [&](CVAttr a) { return t.text(a); };
    auto orElse = [&](CVAttr a, const QString &fallback) { return t.has(a) ? t.text(a) : fallback; };

    m_lineOne->setText(text(CVAttr::Name));
    m_lineTwo->setText(
        u"%1 \u00B7 %2"_s.arg(orElse(CVAttr::Artist, u"Unknown Artist"_s), orElse(CVAttr::Album, u"Unknown Album"_s)));
    m_lineThree->setText(u"%1, %2"_s.arg(
        CVFormatters::humanReadableTimeFromMilliseconds(t.real(CVAttr::TotalTime), true), text(CVAttr::DisplaySize)));
    m_sections->show();
    for (QPushButton *b : std::as_const(m_buttons))
        b->show();

    setField(u"kind"_s, text(CVAttr::Kind));
    setField(u"bitRate"_s, t.has(CVAttr::DisplayBitRate) ? text(CVAttr::DisplayBitRate) : u"Not applicable"_s);
    setField(u"sampleRate"_s, t.has(CVAttr::DisplaySampleRate) ? text(CVAttr::DisplaySampleRate) : u"Not applicable"_s);
    setField(u"dateModified"_s, text(CVAttr::DateModified));
    setField(u"playCount"_s, orElse(CVAttr::Plays, u"0"_s));
    setField(u"lastPlayed"_s, orElse(CVAttr::LastPlayed, u"Not available"_s));

    setField(u"name"_s, text(CVAttr::Name));
    setField(u"artist"_s, text(CVAttr::Artist));
    setField(u"albumArtist"_s, text(CVAttr::AlbumArtist));
    setField(u"album"_s, text(CVAttr::Album));
    setField(u"grouping"_s, text(CVAttr::Grouping));
    setField(u"composer"_s, text(CVAttr::Composer));
    setField(u"genre"_s, text(CVAttr::Genre));
    setField(u"year"_s, text(CVAttr::Year));
    setField(u"bpm"_s, text(CVAttr::BPM));
    setField(u"comments"_s, text(CVAttr::Comments));
    setField(u"compilation"_s, t.has(CVAttr::Compilation) && t.integer(CVAttr::Compilation) ? u"Yes"_s : u"No"_s);
    const QString count = t.has(CVAttr::TrackCount) ? u" of %1"_s.arg(t.integer(CVAttr::TrackCount)) : QString();
    const QString number = t.has(CVAttr::TrackNumber) ? QString::number(t.integer(CVAttr::TrackNumber))
        : count.isEmpty()                             ? QString()
                                                      : u"?"_s;
    setField(u"trackNumber"_s, number + count);
    setField(u"discNumber"_s, text(CVAttr::DisplayDiscNumber));

    // Video fields only for the kinds of media that have them; other tracks leave them as they were.
    static const QStringList videoKinds { u"Movies"_s, u"TV Shows"_s, u"Podcasts"_s, u"iTunes U"_s };
    if (videoKinds.contains(t.textRef(CVAttr::MediaType))) {
        setField(u"show"_s, text(CVAttr::Show));
        setField(u"season"_s, text(CVAttr::SortSeason));
        setField(u"episodeID"_s, text(CVAttr::EpisodeID));
        setField(u"episodeNumber"_s, text(CVAttr::EpisodeNumber));
    }

    const QString L = text(CVAttr::Location);
    const QString S = text(CVAttr::SpanLocation);
    const QString O = text(CVAttr::OriginalLocation);
    const QString title = text(CVAttr::DisplaySpanLocation);
    m_locationNote->hide();
    setField(u"location"_s, S.isEmpty() ? L : S);
    if (S.isEmpty()) {
        setField(u"spanOverview"_s, u"Never Spanned"_s);
        setField(u"spanLocation"_s, u"Not Spanned"_s);
        setField(u"spanSummary"_s, QString());
    } else {
        if (samePath(S, L) && samePath(L, O)) {
            setField(u"spanLocation"_s, u"Not Spanned"_s);
        } else {
            m_locationNote->show();
            setField(u"location"_s, S);
            setField(u"spanLocation"_s, S);
        }
        const bool spanned = t.flag(CVAttr::ItemIsSpanned);
        setField(u"spanSummary"_s,
            u"%1 on %2"_s.arg(spanned ? u"Spanned"_s : u"Restored"_s,
                panelDate(t, spanned ? CVAttr::LastSpanDate : CVAttr::LastRestoreDate)));
        if (!samePath(S, L))
            setField(u"spanOverview"_s,
                samePath(S, O) ? u"Dependently Restored"_s : u"Dependently Spanned to '%1'"_s.arg(title));
        else
            setField(u"spanOverview"_s, samePath(L, O) ? u"Fully Restored"_s : u"Fully Spanned to '%1'"_s.arg(title));
    }
    setField(u"playerLocation"_s, L);
    setField(u"originalLocation"_s, O);
    if (m_stack->isHidden())
        m_stack->show();
}

void CVItemInformationDelegate::clearTrackInformation()
{
    m_stack->hide();
    m_sections->hide();
    for (QPushButton *b : std::as_const(m_buttons))
        b->hide();
    m_lineOne->setText(QString());
    m_lineTwo->setText(u"No Track Selected"_s);
    m_lineThree->setText(QString());
    for (QLabel *l : std::as_const(m_fields))
        l->setText(QString());
    m_locationNote->hide();
}

void CVItemInformationDelegate::setInfoSectionAction(int section)
{
    if (m_lineTwo->text() == u"No Track Selected"_s || section < 0 || section >= m_stack->count())
        return;
    m_sections->setCurrentIndex(section);
    m_stack->setCurrentIndex(section);
}

void CVItemInformationDelegate::showItemInfoWindow()
{
    if (!m_window)
        return;
    const QStringList frame = m_settings ? m_settings->stringValue(kFrameKey).split(u' ') : QStringList();
    if (frame.size() == 4) {
        const QRect saved(frame[0].toInt(), frame[1].toInt(), frame[2].toInt(), frame[3].toInt());
        CVScreenFit::place(m_window, saved.size(), saved.center());
    } else if (m_window->parentWidget()) {
        // Centred on the main window when no frame was saved.
        m_window->adjustSize();
        CVScreenFit::place(m_window, m_window->size(), m_window->parentWidget()->window()->geometry().center());
    }
    m_window->show();
    m_window->raise();
    m_window->activateWindow();
}

void CVItemInformationDelegate::saveWindowFrame()
{
    if (!m_window || !m_settings || !m_window->isVisible())
        return;
    const QRect g = m_window->geometry();
    m_settings->setValue(kFrameKey, u"%1 %2 %3 %4"_s.arg(g.x()).arg(g.y()).arg(g.width()).arg(g.height()));
}
