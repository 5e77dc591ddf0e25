// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

namespace solverstest {

/// While wanted, every calloc that this program calls by itself fails. The linker leads those calls here.
void failCalloc(bool wanted);

} // namespace solverstest
