#pragma once

#include <QWidget>

class QAbstractItemModel;
class QLabel;
class QListView;
class QPushButton;

// The view a run ends with: the headline and the tally, the list of what became of each track,
// the Trash line with its button, the donation panel, and the ways on (span more, open the
// player, quit). Row actions name the row; the controller does the work.
class CVResultsView : public QWidget {
    Q_OBJECT

public:
    explicit CVResultsView(QWidget *parent = nullptr);

    void setModel(QAbstractItemModel *model);
    void setHeadline(const QString &text);
    QString headline() const;
    void setTally(const QString &text);
    QString tally() const;
    void setTrashSummary(const QString &text, bool hideTrashButtons);
    QString trashSummary() const;
    bool trashButtonsHidden() const;
    void setDonateText(const QString &text);
    QString donateText() const;
    // The row the actions work on: the current one, or -1.
    int currentRow() const;
    void scrollToTop();

    QListView *listView() const { return m_list; }
    QPushButton *emptyTrashButton() const { return m_emptyTrash; }
    QPushButton *spanMoreButton() const { return m_spanMore; }

Q_SIGNALS:
    void showInFileManagerRequested(int row);
    void revealInPlayerRequested(int row);
    void playInPlayerRequested(int row);
    void emptyTrashClicked();
    void donateClicked();
    void openPlayerClicked();
    void spanMoreClicked();
    void quitClicked();

private:
    void showRowMenu(const QPoint &at);

    QLabel *m_headline;
    QLabel *m_tally;
    QListView *m_list;
    QLabel *m_trash;
    QPushButton *m_emptyTrash;
    QLabel *m_donate;
    QPushButton *m_donateButton;
    QPushButton *m_show;
    QPushButton *m_openPlayer;
    QPushButton *m_spanMore;
    QPushButton *m_quit;
};
