// The options that the VM takes, in its own order of precedence, from the process's command line
// and the environment: what the VM itself would say through an interface that is not there yet
// while it loads us.
#pragma once

#include <string>
#include <vector>

// Every VM option, later ones winning, behind the program's name. JDK_JAVA_OPTIONS (when the
// program is the java launcher) and JAVA_TOOL_OPTIONS stand before the command line's options,
// _JAVA_OPTIONS behind them. The java launcher's @argument files are read, and what follows its
// main class, jar or module is left out: those are the application's arguments. Another program's
// arguments are taken as they are, because only it knows where its VM options end.
std::vector<std::string> effectiveVmArguments(const std::vector<std::string>& commandLine);

// The words of an option text: separated by blanks, grouped by single or double quotes. With
// argumentFile, also a backslash inside quotes takes the next character as it is, and # begins a
// comment.
std::vector<std::string> splitOptions(const std::string& text, bool argumentFile = false);
