// SPDX-License-Identifier: MIT
#include "config.h"

#include "errors.h"
#include "files.h"

#include <QByteArray>
#include <QFile>
#include <QStringList>

#include <algorithm>
#include <cerrno>
#include <iterator>
#include <sstream>

#include <unistd.h>

namespace {

const char *const VARIABLE = "VORNFH_CONFIG";

/// Where the file is looked for if VORNFH_CONFIG is not set.
QStringList usualPaths()
{
    const QString NAME = "/vornfh.conf";
    QStringList paths;
    const QString folder = QFile::decodeName(qgetenv("XDG_CONFIG_HOME"));
    if (folder.startsWith('/')) // relative paths are invalid
        paths.append(folder + NAME);
    else if (!homeFolder().isEmpty())
        paths.append(homeFolder() + "/.config" + NAME);
    paths.append("/etc" + NAME);
    return paths;
}

/// Returns whether the file exists, or cannot be reached and so may exist.
bool mayExist(const QString &path)
{
    struct stat status = {};
    return readLinkStatus(path, status) || (errno != ENOENT && errno != ENOTDIR);
}

} // namespace

QString configFileProblem(const QString &path)
{
    struct stat status = {};
    if (!readStatus(path, status) || ::access(QFile::encodeName(path).constData(), R_OK) != 0)
        return path + ": " + errorText(errno);
    return S_ISDIR(status.st_mode) ? path + ": is a folder" : QString();
}

ConfigFile usualConfigFile()
{
    if (qEnvironmentVariableIsSet(VARIABLE)) {
        const QString path = QFile::decodeName(qgetenv(VARIABLE));
        if (path.isEmpty())
            return {std::string(), QString("%1 is empty").arg(VARIABLE)};
        const QString problem = configFileProblem(path);
        return {QFile::encodeName(path).toStdString(),
                problem.isEmpty() ? QString() : QString("%1: %2").arg(VARIABLE, problem)};
    }
    const QStringList paths = usualPaths();
    const auto found = std::find_if(paths.begin(), paths.end(), mayExist);
    return found == paths.end()
               ? ConfigFile()
               : ConfigFile{QFile::encodeName(*found).toStdString(), configFileProblem(*found)};
}

QString homeFolder()
{
    return QFile::decodeName(qgetenv("HOME"));
}

std::vector<CLI::ConfigItem> ConfigFormat::from_config(std::istream &input) const
{
    static const std::string MARK = "\xEF\xBB\xBF";
    std::string text(std::istreambuf_iterator<char>(input), {});
    if (text.compare(0, MARK.size(), MARK) == 0)
        text.erase(0, MARK.size());
    std::istringstream rest(text);
    std::vector<CLI::ConfigItem> values = CLI::ConfigTOML::from_config(rest);
    for (CLI::ConfigItem &item : values) {
        const bool isPath = std::count(mPathNames.begin(), mPathNames.end(), item.name) > 0;
        if (!isPath || item.inputs.empty())
            continue;
        std::string &value = item.inputs.front();
        if (value != "~" && value.compare(0, 2, "~/") != 0)
            continue;
        if (homeFolder().isEmpty())
            throw UsageError(QString("the config file uses '%1' for %2, but HOME is not set")
                                 .arg(QString::fromStdString(value), QString::fromStdString(item.name)));
        value.replace(0, 1, QFile::encodeName(homeFolder()).toStdString());
    }
    return values;
}
