#include "common.h"

int main(int argc, char **argv)
{
    return kivtool::run(argc, argv);
}
