#ifndef APPLICATION_CMDLINEHELP_P_H
#define APPLICATION_CMDLINEHELP_P_H

#include <QString>

namespace CmdLineHelpText {

/// The description of the CfgDoc argument that both help texts contain.
QString CfgDocBlock();

/// Argument `index` as Latin-1 text; empty when the vector has no such entry.
QString Argument(int argc, char** argv, int index);

} // namespace CmdLineHelpText

#endif
