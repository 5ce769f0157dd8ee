/// A test plan: what the line does with a unit, step by step, as data. Read from
/// a JSON file (docs/plan.schema.json, docs/line.md); a wrong one is refused as a
/// whole, with the place and the reason.
#ifndef BENCH_LINE_PLAN_H
#define BENCH_LINE_PLAN_H

#include "bench/line/planvariables.h"
#include "bench/station/frame.h"

#include <QColor>
#include <QJsonObject>
#include <QList>
#include <QPoint>
#include <QRegularExpression>
#include <QString>
#include <QStringList>

#include <optional>

struct Plan {
    /// What one decoded field of a frame must be: a number within limits, or a text.
    struct Limit {
        QString field; ///< as in wire::Meaning::fields
        std::optional<double> min;
        std::optional<double> max;
        std::optional<QString> text; ///< a pattern, see matches()
        QString unit;

        /// "11500 to 14500 mV", "at least 3", "1", "'1.2*'".
        QString describe() const;
    };

    /// One thing that must come over the line.
    struct Expected {
        bool isFrame = true; ///< false: an unframed line
        quint16 type = 0;
        std::optional<QString> text; ///< pattern for a frame's data or the whole line
        QList<Limit> fields;         ///< of a frame

        /// "voltage reply 000?????, voltage 11500 to 14500 mV".
        QString describe() const;
    };

    struct Store {
        QString path;
        QString text; ///< a pattern

        /// "255 to /sys/class/leds/ready/brightness".
        QString describe() const;
    };

    /// What the board must show. Only a virtual keypad's board can be looked at.
    struct Check {
        enum Kind {
            Stores,    ///< since the step began, the stores to all paths named are these, in order
            Attribute, ///< reading path gives text
            Pixel,     ///< the screen has the colour at a point
            File,      ///< a file that exists and has the text, or does not exist
            Log,       ///< the tool has logged a line with the text since the step began
            Exit       ///< the tool has ended with this exit status
        };

        Kind kind = Stores;
        QList<Store> stores;
        QString path;
        std::optional<QString> text; ///< pattern, or what a log line contains
        bool exists = true;
        QPoint point;
        QColor colour;
        int tolerance = 0; ///< of each colour component
        int status = 0;

        QString describe() const;
        /// Short enough for a column of a report: "trouble/brightness=255".
        QString brief() const;
    };

    /// One thing that somebody does.
    struct Action {
        enum Kind { Power, Home, Tamper, Card, Touch };

        Kind kind = Touch;
        bool on = false; ///< power on, key pressed, enclosure open, card in
        QPoint point;
        int holdMs = 0;
    };

    struct Operation {
        QString ask;           ///< what an operator is told
        QList<Action> actions; ///< the same for a virtual keypad
        int bootMs = 0;        ///< how much longer a real unit may take then: it boots
    };

    /// A request sent over and over until what the step expects has come.
    struct Poll {
        wire::Frame request;
        int everyMs = 0;
        int atLeast = 0;     ///< answers, so that progress was really seen
        QList<Limit> fields; ///< of every answer
        QString rising;      ///< field that may never fall; empty for none
        int stallMs = 0;     ///< for how long the answers may stay the same; 0 for ever
    };

    /// What is demanded of the five points of a touchscreen's calibration.
    struct Calibration {
        double maxErrorPx = 0;   ///< of each point from where the best map has it
        bool xGrowsRight = true; ///< the counts grow to the right; otherwise to the left
        bool yGrowsDown = true;  ///< otherwise upwards

        /// "at most 6 px".
        QString describe() const;
    };

    /// Done in this order: operation, request, expected frames, calibration, checks, look,
    /// quiet.
    struct Step {
        QString name;
        QString group;
        std::optional<Operation> operation;
        std::optional<wire::Frame> request;
        QByteArray raw; ///< sent instead of a request, as it is
        std::optional<Poll> poll;
        QList<Expected> expected;
        std::optional<Calibration> calibration; ///< of the points that came up to this step
        QList<Check> checks;
        QString look;    ///< a question for the operator of a real unit; yes is good
        QString picture; ///< name of a picture to take at the end; empty for none
        int limitMs = 0; ///< for all that the step waits for
        int quietMs = 0; ///< for how long nothing more may come
        int tries = 1;
        bool required = false; ///< when it fails, the unit is done

        /// Whether anything is sent.
        bool sends() const { return request || !raw.isEmpty(); }
        /// Whether a person says when the operation is done: what it causes does not come
        /// over the line by itself.
        bool isConfirmed() const { return operation && (sends() || expected.isEmpty()); }
    };

    /// What happens to a unit that failed.
    struct Retest {
        int times = 0;       ///< at most
        bool byHand = false; ///< only when the operator says so
    };

    /// A file that the plan was read from.
    struct Source {
        QString file;
        QString sha256; ///< of its bytes, hexadecimal
    };

    QString name;
    QString title;
    QString file;   ///< it was read from
    QString sha256; ///< of that file's bytes, hexadecimal
    QList<Source> includes;
    QString variant;       ///< name of the file of variables; empty for none
    QJsonObject variables; ///< that were set from outside, with their values
    int operatorLimitMs = 0;
    /// The whole of a serial number; an empty pattern for any.
    QRegularExpression serialNumber;
    bool wantsOperator = false; ///< a record names who tested
    Retest retest;
    QList<Step> steps;

    /// @param error  set to everything that is wrong, as by readPlan(), when nothing is
    ///               returned
    static std::optional<Plan> load(const QString &file, QString *error,
                                    const PlanSettings &settings = PlanSettings());
    /// @param file  name for messages and for Plan::file; files that are included are looked
    ///              for beside it
    static std::optional<Plan> fromJson(const QByteArray &json, const QString &file, QString *error,
                                        const PlanSettings &settings = PlanSettings());

    /// Whether a unit may have that serial number.
    bool takesSerialNumber(const QString &text) const;

    /// Whether any step needs a display.
    bool needsDisplay() const;
};

/// Whether the whole of @p text is as @p pattern says: `?` stands for any one character,
/// `*` for any number of them, and all others for themselves.
bool matches(const QString &pattern, const QString &text);

/// The type of that name ("ACK", "voltage reply") or four-digit hexadecimal number.
std::optional<quint16> messageType(const QString &nameOrNumber);

#endif
