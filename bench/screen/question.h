/// A question to the operator.
#ifndef BENCH_SCREEN_QUESTION_H
#define BENCH_SCREEN_QUESTION_H

#include <QMetaType>
#include <QString>

struct Question {
    enum Kind { Confirm, YesNo, Text };

    int id = 0;      ///< the line's; 0 for one of the screen itself
    QString fixture; ///< empty where there is only one
    Kind kind = Confirm;
    QString text;
};

Q_DECLARE_METATYPE(Question)

#endif
