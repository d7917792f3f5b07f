// tarnpb's manual page and its bash completion, written from the same command
// tables as --help, so that the three cannot disagree. The build runs
// "tarnpb --man" and "tarnpb --bash-completion" and installs what they print.
#ifndef TARN_TOOLS_TARNPB_SELF_DOCS_H
#define TARN_TOOLS_TARNPB_SELF_DOCS_H

#include <string>

namespace tarnpb {

// The manual page, tarnpb(1), in roff.
std::string manPage(const std::string& version_);

// A bash completion script: commands, each command's options, and files,
// directories or nothing for an option's value as its value name says.
std::string bashCompletion();

}  // namespace tarnpb

#endif
