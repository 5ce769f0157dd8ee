#include "tests/bench/records/generatedstore.h"

#include <QSqlError>
#include <QSqlQuery>
#include <QStringList>

bool generateRecords(const QSqlDatabase &database, int records, QString *error)
{
    // A day and station every 200 records; a number's digits in other places stand for chance.
    const QStringList statements = {
        "BEGIN IMMEDIATE",
        "CREATE TEMP TABLE number AS WITH RECURSIVE n (i) AS"
        " (SELECT 0 UNION ALL SELECT i + 1 FROM n WHERE i + 1 < " +
            QString::number(records) + ") SELECT i, (i * 7919) % 1009 AS chance FROM n",
        "INSERT INTO series SELECT i / 200 + 1,"
        " date('2020-01-01', '+' || (i / 1000) || ' days'), 'production',"
        " 'line-' || (i / 200 % 5 + 1), '' FROM number WHERE i % 200 = 0",
        "INSERT INTO step_kind SELECT i + 1, 'production', 'Step ' || (i + 1) FROM number"
        " WHERE i < 10",
        "INSERT INTO quantity SELECT key, key, 'voltage', '11000..14500', 'mV', 11000, 14500,"
        " 12000 FROM step_kind",
        "INSERT INTO record SELECT i + 1, 'id-' || i, i / 200 + 1,"
        " 'KP-' || (i - CASE WHEN i % 12 = 11 THEN 1 ELSE 0 END), '', '', '', '', '', '', '',"
        " 1577869200000 + 80000 * i, 30 + chance / 100.0, 1,"
        " CASE WHEN chance < 40 THEN 'fail' ELSE 'pass' END, '',"
        " CASE WHEN chance < 40 THEN 'Step ' || (chance % 10 + 1) ELSE '' END FROM number",
        "INSERT INTO record_json SELECT key, '{}' FROM record",
        "INSERT INTO step SELECT i + 1, key, key,"
        " CASE WHEN chance < 40 AND chance % 10 + 1 = key THEN 'fail' ELSE 'pass' END,"
        " key + chance / 1000.0, 1 FROM number, step_kind",
        "INSERT INTO measurement SELECT i + 1, key, i / 200 + 1,"
        " 12000 + chance % 401 + (chance * key) % 307, '', 1 FROM number, step_kind",
        "INSERT INTO step_sum SELECT kind, series, COUNT(*), SUM(step.outcome = 'pass'),"
        " SUM(step.seconds), MAX(step.seconds) FROM step JOIN record ON record.key = step.record"
        " GROUP BY kind, series",
        "INSERT INTO unit (plan, serial_number, attempts, first_start_ms, first_passed,"
        " first_series, latest_start_ms, latest_passed) SELECT 'production', serial_number,"
        " COUNT(*), MIN(start_ms), MIN(outcome = 'pass'), MIN(series), MAX(start_ms),"
        " MAX(outcome = 'pass') FROM record GROUP BY serial_number",
        "DROP TABLE temp.number",
        "COMMIT"};
    QSqlQuery query(database);
    for (const QString &statement : statements) {
        if (query.exec(statement))
            continue;
        *error = statement + ": " + query.lastError().text();
        return false;
    }
    return true;
}
