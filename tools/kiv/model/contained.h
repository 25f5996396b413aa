// Precompiled chunks, checked only where the tool cannot be harmed by them.
//
// The interpreter trusts precompiled code: a crafted chunk can corrupt the
// memory of the process that loads it.  The tool loads scripts as text only,
// so by default a chunk is refused like any text the library cannot parse
// (with a note saying why).  Asked to check deployed chunks (--precompiled),
// it loads each in a child process of its own: this program again, started
// with no privileges (root becomes nobody, no new privileges can be gained),
// no descriptor but the chunk and the pipe back, no file it may write, and
// limits on its memory, CPU time and processes.  The child reports the
// loader's result, record and log through the pipe; a child that crashes,
// is stopped by a limit or reports nonsense is that file's failure.
#ifndef KIV_TOOL_MODEL_CONTAINED_H
#define KIV_TOOL_MODEL_CONTAINED_H

#include <string>
#include <string_view>

struct kiv_watcher;

namespace kivtool
{

struct script_model;

// Whether a script's text is a precompiled chunk: it begins, after a whole
// UTF-8 byte order mark if any, with the first byte of the chunk signature,
// which is what makes the interpreter take it as one.
bool is_precompiled(std::string_view text);

// The note a refused chunk's failure carries.
extern const char PRECOMPILED_NOTE[];

// Loads the chunk m.text in a child process and fills m's result, kind,
// records and log (each log line given to `watcher` as the library would
// give it); on a failure of the child, m.result is -2 and m.contained_failure
// says what happened.  `log_level` is the library's level at the start.
void load_contained(script_model &m, int log_level, const kiv_watcher *watcher);

// The program the child runs: this one (/proc/self/exe) unless set (tests
// that are not the kiv program set it to the kiv program).
std::string &contained_program();

// The child's side, `PROGRAM --contained-load NAME LEVEL`: loads the chunk
// on its standard input and writes what it found on its standard output.
// Returns the process's exit code.
int contained_main(int argc, char **argv);

} // namespace kivtool

#endif
