/// Every write(2) of the test program, Qt's included: seen before it is done, and
/// refused if the test wants that. The kernel takes what one write() brings as one
/// value, so it matters how often and with how many bytes a store is made.
#ifndef TESTS_SUPPORT_WRITEWATCH_H
#define TESTS_SUPPORT_WRITEWATCH_H

#include <QByteArray>

#include <functional>

namespace WriteWatch
{

/// @return the errno that the write meets, 0 to let it be done
typedef std::function<int(int fd, const QByteArray &bytes)> Hook;

/// An empty hook ends the watch.
void set(const Hook &hook);

} // namespace WriteWatch

#endif
