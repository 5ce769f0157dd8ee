/// Reads one JSON object of a plan and notices everything that does not belong there.
#ifndef BENCH_LINE_OBJECTREADER_H
#define BENCH_LINE_OBJECTREADER_H

#include <QJsonArray>
#include <QJsonObject>
#include <QSet>
#include <QString>
#include <QStringList>

#include <optional>

/// Every read names a key; finish() refuses the keys that nobody named. A mistake is
/// noted with its place, and reading goes on, so that all are reported at once; what only
/// follows from a noted mistake is not noted.
class ObjectReader
{
public:
    enum Presence { Optional, Required };

    /// What a text may hold besides what can be printed.
    enum Characters {
        Printable,   ///< no control characters
        Lines,       ///< line ends and tabs
        AnyCharacter ///< all of them
    };

    /// @param place     of the object, for a person: "step 3 \"LEDs\": expect 1"
    /// @param mistakes  gets a line for each
    ObjectReader(const QJsonObject &object, const QString &place, QStringList *mistakes);

    bool has(const QString &key) const { return m_object.contains(key); }
    void refuse(const QString &reason);
    /// Refuses because @p what is missing.
    void miss(const QString &what);

    /// If it is there, it must not be empty.
    QString text(const QString &key, Presence presence = Optional,
                 Characters characters = Printable);
    /// May be empty; nothing when it is absent.
    std::optional<QString> anyText(const QString &key, Presence presence = Optional,
                                   Characters characters = Printable);
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

    /// A reader for an object in a list of this one. If it is not an object, only that is
    /// noted, and not what the reader misses in it.
    ObjectReader element(const QJsonValue &value, const QString &what);
    ObjectReader inner(const QJsonObject &object, const QString &what) const;

    void finish();

private:
    bool take(const QString &key, Presence presence);
    void checkCharacters(const QString &key, const QString &text, Characters characters);

    QJsonObject m_object;
    QString m_place;
    QStringList *m_mistakes;
    QSet<QString> m_known;
    bool m_isMute = false; ///< there is no object; that has been noted
};

#endif
