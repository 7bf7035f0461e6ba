#ifndef BENCH_PEERS_H
#define BENCH_PEERS_H

#include <initializer_list>
#include <vector>

#include "Operations.h"

namespace bench {

/// Another library doing an operation.
struct Peer
{
    const char* operation;
    const char* name; ///< without a slash
    Function run;
};

inline std::vector<Peer> allPeers;

/// Adds peers when the program starts, so that nothing else depends on which of them are built.
struct Peers
{
    Peers(std::initializer_list<Peer> peers) { allPeers.insert(allPeers.end(), peers); }
};

} // namespace bench

#endif
