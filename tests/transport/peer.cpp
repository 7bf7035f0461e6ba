// Speaks whatever a test wants to a socket: sends its standard input over one connection, and ends
// when the other end has closed it.
// Usage: transport-peer connect|listen SOCKET

#include <cstdio>
#include <exception>
#include <iostream>
#include <iterator>
#include <string>

#include <boost/asio/io_context.hpp>
#include <boost/asio/local/stream_protocol.hpp>
#include <boost/asio/read.hpp>
#include <boost/asio/write.hpp>

namespace {

namespace asio = boost::asio;
typedef asio::local::stream_protocol Protocol;

void speak(Protocol::socket socket)
{
    const std::string bytes(std::istreambuf_iterator<char>(std::cin), {});
    boost::system::error_code closed;
    asio::write(socket, asio::buffer(bytes), closed);
    std::puts("sent");
    std::fflush(stdout);
    std::string heard;
    asio::read(socket, asio::dynamic_buffer(heard), closed);
    std::printf("closed after %zu bytes\n", heard.size());
}

void run(const std::string& way, const std::string& path)
{
    asio::io_context io;
    Protocol::socket socket(io);
    if (way == "listen")
        socket = Protocol::acceptor(io, path).accept();
    else
        socket.connect(path);
    speak(std::move(socket));
}

} // namespace

int main(int argc, char** argv)
{
    try {
        if (argc != 3)
            throw std::runtime_error("usage: transport-peer connect|listen SOCKET");
        run(argv[1], argv[2]);
        return 0;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "transport-peer: %s\n", error.what());
        return 1;
    }
}
