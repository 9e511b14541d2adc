// A part (part.h) that runs as LocalSystem, in a service of the kit's own that is there meanwhile.
#pragma once

#include <string>
#include <vector>

#include "product_service.h"

namespace zorvalis::acceptance {

class SystemPart {
public:
    // `file` gets what the part prints; LocalSystem must be able to write it.
    SystemPart(const std::string& file, const std::string& part, const std::vector<std::string>& arguments);
    ~SystemPart();
    SystemPart(const SystemPart&) = delete;
    SystemPart& operator=(const SystemPart&) = delete;

    unsigned long error() const { return error_; }  // why it was not started; 0 when it was

    // Whether the part has printed that within the time.
    bool HasPrinted(const std::string& text, int seconds) const;

    // False when it has not ended in time.
    bool Wait(int seconds) const;

    std::string output() const;

private:
    std::string file_;
    OwnedService service_;
    unsigned long error_ = 0;
};

// Deletes the service that a step left which was ended.
void RemoveSystemService();

}  // namespace zorvalis::acceptance
