// SPDX-License-Identifier: MIT
#ifndef CONFIG_H
#define CONFIG_H

#include <CLI/CLI.hpp>

#include <QString>

#include <istream>
#include <string>
#include <vector>

/// The config file that is read if --config does not name one.
struct ConfigFile {
    std::string path; // empty if there is none
    QString problem;  // why it cannot be read; empty if it can
};

/// Why the config file @p path cannot be read; empty if it can.
QString configFileProblem(const QString &path);

/// The file that VORNFH_CONFIG names or, if that is not set, the first that exists of
/// $XDG_CONFIG_HOME/vornfh.conf (by default ~/.config/vornfh.conf if HOME is set) and /etc/vornfh.conf.
ConfigFile usualConfigFile();

/// The user's home folder; empty if HOME is not set.
QString homeFolder();

/// The format of config files. A byte-order mark is skipped, and "~" at the start of a path is HOME.
class ConfigFormat : public CLI::ConfigTOML
{
public:
    /// @p pathNames are the keys whose values are paths.
    explicit ConfigFormat(std::vector<std::string> pathNames) : mPathNames(std::move(pathNames)) {}

    /// Throws UsageError if HOME is needed but not set.
    std::vector<CLI::ConfigItem> from_config(std::istream &input) const override;

private:
    std::vector<std::string> mPathNames;
};

#endif // CONFIG_H
