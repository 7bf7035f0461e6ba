#ifndef BENCH_PEERS_H
#define BENCH_PEERS_H

#include <initializer_list>
#include <vector>

namespace bench {

/// What one would otherwise take for an operation. Each peer is in a file of its own, which adds
/// its rows when the program starts: built or left out, nothing else knows of it.
struct Peer
{
    const char* operation;
    const char* name; ///< without a slash
    void (*run)();
};

class Peers
{
public:
    Peers(std::initializer_list<Peer> rows) { rowsOfAll().insert(rowsOfAll().end(), rows); }

    static const std::vector<Peer>& all() { return rowsOfAll(); }

private:
    static std::vector<Peer>& rowsOfAll()
    {
        static std::vector<Peer> rows;
        return rows;
    }
};

} // namespace bench

#endif
