// dump_dd as a program, for the benchmark: dump_dd SOURCE DESTINATION COUNT copies COUNT blocks of
// 4096 bytes.

#include <string>

#include "extraction/partition_access.h"

int main(int argc, char** argv) {
    if (argc != 4) {
        return 2;
    }
    dump_dd(argv[1], argv[2], 4096, std::stoi(argv[3]), 0);
    return 0;
}
