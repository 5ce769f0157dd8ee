/// Functions in place of slots, which connect() accepts only since Qt 5.
#ifndef TESTS_SUPPORT_ONSIGNAL_H
#define TESTS_SUPPORT_ONSIGNAL_H

#include <QObject>
#include <QString>
#include <QVariant>

#include <functional>

class SignalFunction : public QObject
{
    Q_OBJECT
public:
    typedef std::function<void(const QVariant &)> Function;

    SignalFunction(QObject *parent, const Function &function)
        : QObject(parent), m_function(function)
    {
    }

public slots:
    void call() { m_function(QVariant()); }
    void call(bool argument) { m_function(argument); }
    void call(int argument) { m_function(argument); }
    void call(const QString &argument) { m_function(argument); }
    void call(bool, const QString &argument) { m_function(argument); }

private:
    Function m_function;
};

/// Calls @p function at each @p signal, written as by SIGNAL(), for as long as @p sender
/// lives. It gets the signal's last argument, which may be a bool, an int or a QString;
/// null where there is none.
inline void onSignal(QObject *sender, const char *signal, const SignalFunction::Function &function)
{
    const QByteArray arguments = QMetaObject::normalizedSignature(signal);
    const QByteArray slot = SLOT(call) + arguments.mid(arguments.indexOf('('));
    if (!QObject::connect(sender, signal, new SignalFunction(sender, function), slot.constData()))
        qFatal("no such signal: %s", signal);
}

#endif
