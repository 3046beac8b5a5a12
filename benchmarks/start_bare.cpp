// What `start_client` needs of the system, over bare sockets: SOCKET is that of a bare service.

#include <exception>

#include "bare_client.h"

int main(int argc, char** argv) try {
    if (argc != 2) {
        return 1;
    }
    zam_bench::ConnectTwiceAndLookUp(argv[1], 1);
    return 0;
} catch (const std::exception&) {
    return 1;
}
