// The crew: threads that compress blocks. There are two of the same interface, one over the library (crew_vyx.cpp) and
// one over the platform's threads (crew_plain.cpp), so that both can be compared.
#ifndef SQUEEZE_CREW_H
#define SQUEEZE_CREW_H

#include <memory>

#include "block.h"

namespace squeeze {

class Crew {
  public:
    Crew();
    // Waits for the blocks that are being compressed.
    ~Crew();
    Crew(const Crew &) = delete;
    Crew &operator=(const Crew &) = delete;

    static int Processors();
    // False if the system refuses what the crew needs. Threads start with the first blocks.
    bool Start(int threads);
    // Hands a block over; Take gives it back. False if that is not possible.
    bool Give(Block *block);
    // Waits for the next block that is compressed. Of those that are there already the lowest number comes first. Null:
    // failed.
    Block *Take();

  private:
    struct Inside;
    std::unique_ptr<Inside> m_inside;
};

} // namespace squeeze

#endif
