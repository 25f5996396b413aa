// kiv lint: what loads but cannot work as meant, or what a dump silently
// changes.  The rules live with the model (model/rules.h); this is their
// front on the command line.
#ifndef KIV_TOOL_LINT_H
#define KIV_TOOL_LINT_H

#include "model/rules.h"

#endif
