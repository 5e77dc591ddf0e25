# SPDX-License-Identifier: LicenseRef-qxkernel
# Read by CPack for each kind of package: the tarball has all components in one folder.
if(CPACK_GENERATOR STREQUAL TGZ)
  set(CPACK_COMPONENTS_GROUPING ALL_COMPONENTS_IN_ONE)
  set(CPACK_COMPONENT_INCLUDE_TOPLEVEL_DIRECTORY ON)
endif()
