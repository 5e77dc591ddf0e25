// SPDX-License-Identifier: LicenseRef-qxkernel
// Any bytes as a mesh file: read or refused, and a mesh that is read can be refined.

#include "heat/mesh.hpp"
#include "support/fileerror.hpp"

#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    try {
        const examples::NamedMesh mesh =
            examples::readMshText(std::string(reinterpret_cast<const char*>(data), size), "fuzz");
        examples::refined(mesh);
    } catch (const examples::FileError&) {
    }
    return 0;
}
