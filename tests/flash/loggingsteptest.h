/// What the tests of the two steps that mount the NAND share. Each runs one program and
/// logs what it prints; there is no other difference between them.
#ifndef TESTS_FLASH_LOGGINGSTEPTEST_H
#define TESTS_FLASH_LOGGINGSTEPTEST_H

#include "flash/mfproc.h"

#include <QObject>
#include <QString>
#include <QStringList>

#include <memory>

class LoggingStepTest : public QObject
{
    Q_OBJECT

protected:
    struct Expected {
        QString program;
        QStringList arguments;
        QString startLine; ///< with its level
    };
    explicit LoggingStepTest(const Expected &expected) : m_expected(expected) {}

    virtual std::unique_ptr<MFProc> makeStep() const = 0;
    /// Adds the captures of the program: their names, the exit code that belongs
    /// to each, and what the step emits and logs.
    virtual void addOutcomes() const = 0;

private slots:
    void toolIsCalled();
    void toolInheritsTheEnvironment();
    void outputGoesToTheLog();
    void everyOutcomeIsReported_data();
    void everyOutcomeIsReported();
    void missingProgramFails();

private:
    const Expected m_expected;
};

#endif
