#include "print_data.h"

#include "output_file.h"

namespace brimtool {

void printData(std::string_view bytes) {
    OutputFile output("-");
    output.write(bytes);
    output.commit();
}

} // namespace brimtool
