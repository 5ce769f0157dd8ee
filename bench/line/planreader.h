/// Reads one JSON object of a plan and notices everything that does not belong there.
#ifndef BENCH_LINE_PLANREADER_H
#define BENCH_LINE_PLANREADER_H

#include <QJsonArray>
#include <QJsonObject>
#include <QSet>
#include <QString>
#include <QStringList>

#include <optional>

/// Every read names a key; finish() refuses the keys that nobody named. The
/// first complaint is kept, with the place, and later ones are dropped, so that
/// a caller reads on and looks once.
class PlanReader
{
public:
    enum Presence { Optional, Required };

    /// @param place  of the object, for a person: "step 3 \"LEDs\": expect 1"
    PlanReader(const QJsonObject &object, const QString &place, QString *error);

    bool has(const QString &key) const { return m_object.contains(key); }
    bool failed() const { return !m_error->isEmpty(); }
    void refuse(const QString &reason);
    /// Refuses because @p what is missing; finish() then names all unknown keys as well.
    void miss(const QString &what);

    /// Not empty where it is there at all.
    QString text(const QString &key, Presence presence = Optional);
    /// Empty is allowed; nothing when it is absent.
    std::optional<QString> anyText(const QString &key);
    /// One of @p words; the index, or -1.
    int choice(const QString &key, const QStringList &words);
    int integer(const QString &key, int least, int most, int otherwise);
    int requiredInteger(const QString &key, int least, int most);
    std::optional<double> number(const QString &key);
    bool boolean(const QString &key, bool otherwise);
    QJsonObject object(const QString &key);
    /// A list with at least one element.
    QJsonArray list(const QString &key, Presence presence = Optional);
    QJsonValue value(const QString &key);

    /// A reader for an object in a list of this one.
    PlanReader element(const QJsonValue &value, const QString &what);
    PlanReader inner(const QJsonObject &object, const QString &what) const;

    void finish();

private:
    bool take(const QString &key, Presence presence);

    QJsonObject m_object;
    QString m_place;
    QString *m_error;
    QSet<QString> m_known;
    bool m_misses = false; ///< the complaint is that something is missing here
};

#endif
