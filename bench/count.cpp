// Passes the shipped speech once through the codec or the concealment. scripts/bench runs this under
// emulation and counts the instructions of every call.
//
// usage: count codec | count RATE PERCENT_LOST
#include "speech.h"

#include <string>

int main(int argc, char **argv) {
    if (argc == 3) {
        Link link(std::stoi(argv[1]), std::stoi(argv[2]), 1);
        for (std::size_t i = 0; i < link.lost.size(); ++i) link.pass(0, i);
    } else {
        Samples narrow = clip(8000);
        narrow.resize(16000); // two seconds do: the cost of a packet hardly depends on what is in it
        CodecStream stream(narrow);
        for (std::size_t i = 0; i < stream.packets; ++i) stream.decode(i);
    }
}
