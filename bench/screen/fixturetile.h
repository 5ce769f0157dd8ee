/// One fixture on the screen: its name, the unit's serial number, the verdict and the step.
#ifndef BENCH_SCREEN_FIXTURETILE_H
#define BENCH_SCREEN_FIXTURETILE_H

#include "bench/screen/lineview.h"

#include <QWidget>

class FitLabel;
class VerdictBox;

class FixtureTile : public QWidget
{
    Q_OBJECT

public:
    /// Whether the fixture has asked something.
    enum Asking { Nothing, Waits, Asks };

    explicit FixtureTile(QWidget *parent = nullptr);

    void setFixture(const FixtureView &fixture);
    /// A fixture that asks is framed; one that waits for its turn has a question mark.
    void setAsking(Asking asking);
    Asking asking() const { return m_asking; }

protected:
    void paintEvent(QPaintEvent *event) override;
    void resizeEvent(QResizeEvent *event) override;

private:
    void showHeading();
    void arrange();
    void arrangeWhole();
    void arrangeTiny();

    FixtureView m_fixture;
    Asking m_asking = Nothing;
    FitLabel *m_name;
    FitLabel *m_serial;
    VerdictBox *m_verdict;
    FitLabel *m_text;
};

#endif
