// Passes the shipped speech once through the codec or the concealment. scripts/bench runs this in an emulator
// and counts the instructions of every call.
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
        narrow.resize(16000); // two seconds are enough: the cost hardly depends on the samples
        CodecStream stream(narrow);
        for (std::size_t i = 0; i < stream.packets; ++i) stream.decode(i);
    }
}
