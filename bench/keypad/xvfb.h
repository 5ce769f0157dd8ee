/// A headless X server of the keypad's size. It ends with the process that
/// started it, however that ends.
#ifndef BENCH_KEYPAD_XVFB_H
#define BENCH_KEYPAD_XVFB_H

#include <QString>

#include <sys/types.h>

class Xvfb
{
public:
    Xvfb() = default;
    ~Xvfb();
    Xvfb(const Xvfb &) = delete;
    Xvfb &operator=(const Xvfb &) = delete;

    /// The one that all keypads of this process share, started when first needed.
    static Xvfb &shared();

    /// Starts it and waits until it takes connections. False with errorString(); true when it
    /// runs already.
    bool start();
    QString errorString() const { return m_error; }
    /// For example ":3"; empty when not running.
    QString display() const { return m_display; }

private:
    bool readDisplay(int fd);

    pid_t m_guard = -1;
    int m_leash = -1; ///< closing it ends the server
    QString m_display;
    QString m_error;
};

#endif
