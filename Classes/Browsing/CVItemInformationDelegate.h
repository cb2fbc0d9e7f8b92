#pragma once

#include <QHash>
#include <QObject>
#include <QPointer>

class CVSettings;
class CVTrack;
class QLabel;
class QPushButton;
class QStackedWidget;
class QTabBar;
class QWidget;

// The track information window: a header, four sections (file, track, video, span) chosen by a
// segmented control, and buttons to show the file, reveal it and play it in the player.
class CVItemInformationDelegate : public QObject {
    Q_OBJECT

public:
    enum Section { FileSection = 0, TrackSection, VideoSection, SpanSection };

    explicit CVItemInformationDelegate(CVSettings *settings, QWidget *parentWindow, QObject *parent = nullptr);
    ~CVItemInformationDelegate() override;

    void loadTrackInformation(const CVTrack *track);
    void clearTrackInformation();
    void setInfoSectionAction(int section);
    void showItemInfoWindow();
    void saveWindowFrame();

    QWidget *window() const { return m_window; }
    int currentSection() const;
    QWidget *sectionView(int section) const;
    bool isSectionControlVisible() const;
    // The text of a field by its name ("kind", "spanOverview", "lineTwo", ...), for tests.
    QString fieldText(const QString &field) const;
    bool isLocationNoteVisible() const;

Q_SIGNALS:
    void showInFinderRequested();
    void revealInITunesRequested();
    void playInITunesRequested();

private:
    QLabel *addField(QWidget *section, const QString &name, const QString &label);
    void setField(const QString &name, const QString &text);

    CVSettings *m_settings;
    QPointer<QWidget> m_window;
    QLabel *m_lineOne = nullptr;
    QLabel *m_lineTwo = nullptr;
    QLabel *m_lineThree = nullptr;
    QLabel *m_locationNote = nullptr;
    QTabBar *m_sections = nullptr;
    QStackedWidget *m_stack = nullptr;
    QList<QPushButton *> m_buttons;
    QHash<QString, QLabel *> m_fields;
};
