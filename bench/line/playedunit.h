/// What the units that the bench plays itself have in common: no person acts on them,
/// everything on their board can be looked at, and a fault may come at a certain moment.
#ifndef BENCH_LINE_PLAYEDUNIT_H
#define BENCH_LINE_PLAYEDUNIT_H

#include "bench/line/storesdifference.h"
#include "bench/line/unit.h"

#include <QList>

#include <functional>
#include <optional>

struct Fault;

class PlayedUnit : public Unit
{
public:
    bool hasOperator() const override { return false; }
    Done look(const QString &question, int limitMs, QString *error) override;
    Finding check(const Plan::Check &check, Difference *difference) override;
    QString missedFault() const override;

protected:
    /// Why a unit may not have come to a fault; empty for one that it has from the start.
    using MomentOf = QString (*)(const Fault &fault);

    PlayedUnit(const QList<const Fault *> &faults, MomentOf momentOf);

    /// How the tool ended.
    struct Ending {
        bool known = false;
        int status = -1; ///< -1 after a signal
        int signal = 0;
    };

    /// Those of the step, to all paths.
    virtual QList<MadeStore> stores() = 0;
    /// Texts of the step's lines.
    virtual QStringList logTexts() = 0;
    /// Nothing when there is none.
    virtual std::optional<QByteArray> attribute(const QString &path) = 0;
    virtual std::optional<QByteArray> file(const QString &path) = 0;
    virtual Ending ending() = 0;
    /// Why nobody knows how the tool ended.
    virtual QString whyNoEnding() = 0;
    /// Presses the home key or lets go of it.
    virtual bool pushHome(bool down) = 0;

    const QList<const Fault *> &faults() const { return m_faults; }
    /// Begins another step. Returns whether it is time for faults that come later.
    bool isLate();
    /// Whether any step has begun.
    bool hasBegun() const { return m_steps > 0; }
    /// @param had  whether the moment of a fault has come
    void hadItsMoment(const std::function<bool(const Fault &fault)> &had);
    /// Presses the home key or lets go of it, unless it sticks. A request that follows finds
    /// the tool at the key's new place: its buzzer has said so, or never will.
    bool moveHome(bool down);
    /// How the tool ended, in words; empty when that is not known.
    QString shownEnding();

    static QString noLateStep();
    static QString noRelease();
    static QByteArray logLine(const QString &time, const QString &severity, const QString &text);

private:
    Finding checkExit(const Plan::Check &check, QString *found);
    bool homeSticks();
    std::ptrdiff_t buzzerStores();

    const QList<const Fault *> m_faults;
    const MomentOf m_momentOf;
    QList<const Fault *> m_awaited; ///< faults whose moment has not come yet
    int m_steps = 0;
};

#endif
