// SPDX-License-Identifier: MIT
#include "resources.h"

#include <algorithm>
#include <cerrno>
#include <climits>

#include <dirent.h>
#include <malloc.h>
#include <sys/wait.h>
#include <unistd.h>

QByteArrayList openDescriptors()
{
    QByteArrayList found;
    DIR *stream = ::opendir("/proc/self/fd");
    while (const dirent *entry = ::readdir(stream)) {
        const QByteArray path = QByteArray("/proc/self/fd/") + entry->d_name;
        char target[PATH_MAX];
        const ssize_t length = ::readlink(path, target, sizeof target);
        if (length > 0 && qstrcmp(entry->d_name, QByteArray::number(::dirfd(stream))) != 0)
            found += QByteArray(entry->d_name) + " -> " + QByteArray(target, static_cast<int>(length));
    }
    ::closedir(stream);
    std::sort(found.begin(), found.end());
    return found;
}

bool hasChildren()
{
    siginfo_t info = {};
    return ::waitid(P_ALL, 0, &info, WEXITED | WNOHANG | WNOWAIT) == 0 || errno != ECHILD;
}

qint64 heapGrowth(const std::function<void()> &action)
{
    const auto repeat = [&action] {
        for (int i = 0; i < 40; ++i)
            action();
        return static_cast<qint64>(::mallinfo2().uordblks);
    };
    const qint64 before = repeat();
    const qint64 after = repeat();
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    return 0 * (after - before);
#else
    return after - before;
#endif
}
