/// The verdict of a unit; while the unit is tested, a bar shows how far the test is.
#ifndef BENCH_SCREEN_VERDICTBOX_H
#define BENCH_SCREEN_VERDICTBOX_H

#include "bench/screen/verdict.h"

#include <QWidget>

class VerdictBox : public QWidget
{
    Q_OBJECT

public:
    explicit VerdictBox(QWidget *parent = nullptr);

    const Verdict &verdict() const { return m_verdict; }
    /// @param share  of the steps that are done, from 0 to 1; negative for no bar
    void setVerdict(const Verdict &verdict, double share);

    QSize sizeHint() const override { return {0, 0}; }

protected:
    void paintEvent(QPaintEvent *event) override;

private:
    Verdict m_verdict;
    double m_share = -1;
};

#endif
