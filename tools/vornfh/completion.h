// SPDX-License-Identifier: MIT
#ifndef COMPLETION_H
#define COMPLETION_H

#include <CLI/CLI.hpp>

#include <QByteArrayList>
#include <QString>
#include <QStringList>

#include <functional>
#include <string>
#include <vector>

/// What a shell offers for the last word of a command line. It is derived from the definitions of the
/// commands and their options: the names of arguments and the types of values say what is expected.
class Completion
{
public:
    /// Returns the names of the folders of a storage device ("sd"). @p options are those options of the
    /// command line that are common to all commands.
    using FoldersOf =
        std::function<QStringList(const std::vector<std::string> &options, const std::string &storage)>;

    /// @p words are those after the name of the tool; the last one is completed and may be empty.
    Completion(const CLI::App &app, std::vector<std::string> words, FoldersOf foldersOf);

    /// "files", "directories" or "none": which paths the shell offers in addition; then a line
    /// "CANDIDATE<tab>DESCRIPTION" for each candidate.
    QByteArray lines();

private:
    void read(const std::string &word);
    void readOption(const std::string &word);
    const CLI::Option *find(const std::string &option) const;
    QStringList argumentNames() const;
    std::string lastStorage() const;

    void addCommands();
    void addOptions();
    void addArguments();
    void addValuesOf(const CLI::Option &option);
    void addStorages();
    void addKind(const QString &kind);
    void addAll(const QStringList &candidates);
    void add(const QString &candidate, const QString &description = QString());

    const CLI::App &mApp;
    const FoldersOf mFoldersOf;
    QString mStart; // of the candidates
    bool mHasCommand = false;
    const CLI::App *mCommand = nullptr;   // null also if there is no such command
    const CLI::Option *mOption = nullptr; // whose value comes next
    bool mHasOnlyArguments = false;       // after "--"
    std::vector<std::string> mArguments;
    std::vector<std::string> mCommonOptions;
    QByteArray mPaths = "none";
    QByteArrayList mLines;
};

#endif // COMPLETION_H
