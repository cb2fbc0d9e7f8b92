#pragma once

#include <QList>
#include <QStringList>
#include <QWidget>

class QToolButton;

// The row of media buttons above the browser, one per media name, each with its count. When the
// row does not fit, it closes its gaps to 6, then drops the buttons' padding, then the counts.
class CVMediaFilterBar : public QWidget {
    Q_OBJECT

public:
    // Room kept at the right for the bar's other controls.
    static constexpr int Reserve = 134;

    explicit CVMediaFilterBar(const QStringList &names, QWidget *parent = nullptr);

    QToolButton *button(int index) const { return m_buttons.at(index); }
    int count() const { return int(m_buttons.size()); }
    // Counts per button, in button order; lays the row out again.
    void setCounts(const QList<int> &counts);
    bool countsShown() const { return m_countsShown; }
    int gap() const { return m_gap; }
    int padding() const { return m_padding; }

    QSize sizeHint() const override;
    QSize minimumSizeHint() const override;

Q_SIGNALS:
    void mediaClicked(int index);
    void contextMenuRequested(int index, const QPoint &globalPosition);

protected:
    void resizeEvent(QResizeEvent *event) override;
    void paintEvent(QPaintEvent *event) override;

private:
    void layoutButtons();
    void applyTitles();

    QStringList m_names;
    QList<QToolButton *> m_buttons;
    QList<int> m_counts;
    bool m_countsShown = true;
    int m_gap = 12;
    int m_padding = 8;
};
