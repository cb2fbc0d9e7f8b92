#pragma once

#include "Platform/CVSettings.h"
#include <QDialog>

class CVBrowserDelegate;
class CVColumnTokensModel;
class CVSettings;
class QListView;
class QPushButton;
class QToolButton;

// The column display options window: the track list's shown columns as tokens, in order.
// Tokens are dragged (or moved with Ctrl+Up and Ctrl+Down) to reorder, added from the columns
// not shown, removed (one always stays), and the default set can be put back. The track list
// follows every change at once and keeps it across starts.
class CVColumnDisplayOptionDelegate : public QDialog {
    Q_OBJECT

public:
    static constexpr auto FrameKey = CVSettingsKey::ColumnDisplayOptionsWindowFrame;

    CVColumnDisplayOptionDelegate(CVSettings *settings, CVBrowserDelegate *browser, QWidget *parent = nullptr);

    // Reads the track list's columns again (after the user moved one in the list itself).
    void reloadTokens();
    QStringList tokens() const;
    void setTokens(const QStringList &identifiers);
    void addColumn(const QString &identifier);
    void removeSelectedColumn();
    void moveSelectedColumn(int by);
    void moveSmartColumn();
    void resetToDefault();

    CVColumnTokensModel *model() const { return m_model; }
    QListView *tokenView = nullptr;
    QToolButton *addButton = nullptr;
    QPushButton *removeButton = nullptr;
    QPushButton *upButton = nullptr;
    QPushButton *downButton = nullptr;
    QPushButton *smartButton = nullptr;
    QPushButton *resetButton = nullptr;

Q_SIGNALS:
    void helpRequested();

protected:
    void showEvent(QShowEvent *event) override;
    void hideEvent(QHideEvent *event) override;

private:
    void fillAddMenu();
    void updateButtons();
    int selectedRow() const;
    void selectRow(int row);

    CVSettings *m_settings;
    CVBrowserDelegate *m_browser;
    CVColumnTokensModel *m_model;
    bool m_applying = false;
};
