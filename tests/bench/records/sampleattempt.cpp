#include "tests/bench/records/sampleattempt.h"

#include <QJsonArray>
#include <QJsonDocument>

QJsonObject SampleAttempt::object() const
{
    const QJsonObject measured{{"name", "voltage"},
                               {"value", volts},
                               {"min", 11000},
                               {"max", 14500},
                               {"unit", "mV"},
                               {"limits", "11000 to 14500"},
                               {"good", outcome == "pass"}};
    const QJsonObject version{{"name", "version"}, {"value", "1.2"}, {"good", true}};
    const QJsonArray steps{QJsonObject{{"step", 1},
                                       {"name", "Volts"},
                                       {"outcome", outcome},
                                       {"seconds", 0.5},
                                       {"tries", 2},
                                       {"measured", QJsonArray{measured}},
                                       {"attempts", QJsonArray{QJsonObject{{"outcome", "fail"}},
                                                               QJsonObject{{"outcome", outcome}}}}},
                           QJsonObject{{"step", 2},
                                       {"name", "Version"},
                                       {"outcome", "pass"},
                                       {"seconds", 0.25},
                                       {"tries", 1},
                                       {"measured", QJsonArray{version}}},
                           QJsonObject{{"step", 3}, {"name", "Lamp"}, {"outcome", "not run"}}};
    QJsonObject record{{"record", 1},
                       {"id", id},
                       {"plan", plan},
                       {"title", "Test of units"},
                       {"plan_sha256", "4e07"},
                       {"number", 3},
                       {"serial_number", serialNumber},
                       {"station", station},
                       {"fixture", "left"},
                       {"operator", "Ada"},
                       {"unit", "/dev/ttyUSB0"},
                       {"tool_version", "1.2"},
                       {"bench_version", "0.9"},
                       {"variables", QJsonObject{{"lamp", "red"}, {"current", 20}}},
                       {"attempt", attempt},
                       {"start", start},
                       {"seconds", 12.5},
                       {"ended", ended},
                       {"outcome", ended ? outcome : QString("interrupted")},
                       {"steps", steps}};
    if (outcome != "pass")
        record.insert("reason", "step 1 \"Volts\": voltage 9000 mV is below 11000");
    return record;
}

QByteArray SampleAttempt::json() const
{
    return QJsonDocument(object()).toJson();
}

RecordFile SampleAttempt::record() const
{
    QString error;
    const std::optional<RecordFile> record = RecordFile::fromJson(json(), &error);
    if (!record)
        qFatal("%s", qPrintable(error));
    return *record;
}
