#include "frontend/run.h"

int main(int argc, char** argv) {
    return quarry::run(argc, argv);
}
