#include "client/commandline/RunCommandLine.h"

int main(int count, char** arguments) {
    return kavaro::runCommandLine(count, arguments);
}
