#pragma once

#include <QIcon>
#include <QWidget>

class QFormLayout;

// One pane of the preferences window: it reads its controls from the settings whenever it is
// shown (the settings may have changed elsewhere meanwhile) and writes a setting as soon as a
// control changes.
class CVPreferencesPane : public QWidget {
    Q_OBJECT

public:
    CVPreferencesPane(const QString &title, const QIcon &icon, QWidget *parent = nullptr);

    QString title() const { return m_title; }
    QIcon icon() const { return m_icon; }
    virtual void reloadNibOutlets() = 0;

protected:
    void showEvent(QShowEvent *event) override;
    // The pane's form: a label on the left, the control on the right.
    QFormLayout *form() const { return m_form; }
    // A control in the form, its label its accessible name too.
    void addRow(const QString &label, QWidget *control);

private:
    QString m_title;
    QIcon m_icon;
    QFormLayout *m_form;
};
