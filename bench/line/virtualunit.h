/// A unit that is a virtual keypad: its operator's hand and the look at its
/// board are calls.
#ifndef BENCH_LINE_VIRTUALUNIT_H
#define BENCH_LINE_VIRTUALUNIT_H

#include "bench/keypad/virtualkeypad.h"
#include "bench/line/playedunit.h"

#include <QList>

struct VirtualUnitOptions {
    KeypadDisplay display;
    double flashSeconds = 0; ///< for both programs of a flash together; 0 is full speed
    QList<const Fault *> faults;
};

class VirtualUnit : public PlayedUnit
{
public:
    explicit VirtualUnit(const VirtualUnitOptions &options);
    ~VirtualUnit() override;

    QString description() const override;
    /// Builds the board; the tool is started by an operation of the plan.
    bool attach(Station *station, QString *error) override;
    void beginStep() override;
    Done operate(const Plan::Operation &operation, bool confirm, int limitMs,
                 QString *error) override;
    QImage screen() override;
    QString end() override;
    QByteArray log() override;

protected:
    QList<MadeStore> stores() override;
    QStringList logTexts() override;
    std::optional<QByteArray> attribute(const QString &path) override;
    std::optional<QByteArray> file(const QString &path) override;
    Ending ending() override;
    QString whyNoEnding() override;
    bool pushHome(bool down) override;

private:
    static QString momentOf(const Fault &fault);
    bool perform(const Plan::Action &action);
    bool switchPower(bool on);
    bool moveCard(bool in);

    const VirtualUnitOptions m_options;
    VirtualKeypad m_keypad;
    bool m_isOn = false;
    int m_firstStore = 0; ///< of the step
    int m_firstLine = 0;
};

#endif
