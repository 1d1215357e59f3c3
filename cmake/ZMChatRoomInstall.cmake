# Install rules, exported targets, package configuration and pkg-config files.
#
# Layout under the prefix:
#   lib/libZMPlatform.so*, libZMChatRoom.so*             component ZMChatRoom_Runtime
#   include/zmchatroom/{ZMChatRoom,VemoIMLibCore,Platform}/...
#   lib/cmake/ZMChatRoom/, lib/pkgconfig/zmchatroom.pc   component ZMChatRoom_Development
#   lib/libZMCoreEmulator.so*, include/zmchatroom-emulator/CoreEmulator/...,
#   its exported targets and zmchatroom-emulator.pc     component ZMChatRoom_CoreEmulator
#   lib/libZMChatRoomTestKit.so*, include/zmchatroom-testkit/ZMChatRoomTestKit/...,
#   zmchatroom-testkit.pc (the test kit, exported with the emulator)
#
# The headers live under include roots of their own, so that their generic
# directory names (Platform/) cannot clash with other packages', and the
# emulator's headers are reachable only through the emulator's target (the
# test kit's only through the test kit's).

set(ZM_CMAKE_DIR "${CMAKE_INSTALL_LIBDIR}/cmake/ZMChatRoom")
set(ZM_PKGCONFIG_DIR "${CMAKE_INSTALL_LIBDIR}/pkgconfig")

install(TARGETS VemoIMLibCore ZMPlatform ZMChatRoom
        EXPORT ZMChatRoomTargets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT ZMChatRoom_Runtime
                NAMELINK_COMPONENT ZMChatRoom_Development
        ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT ZMChatRoom_Development
        RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT ZMChatRoom_Runtime)
install(TARGETS ZMCoreEmulator ZMChatRoomTestKit
        EXPORT ZMChatRoomCoreEmulatorTargets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT ZMChatRoom_CoreEmulator
        ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT ZMChatRoom_CoreEmulator
        RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT ZMChatRoom_CoreEmulator)

# Public headers. The module's private headers (*+Internal.h) stay in the tree.
foreach(dir IN ITEMS ZMChatRoom VemoIMLibCore Platform)
  install(DIRECTORY ${ZM_ROOT}/${dir}/
          DESTINATION ${ZM_INSTALL_INCLUDEDIR}/${dir}
          COMPONENT ZMChatRoom_Development
          FILES_MATCHING PATTERN "*.h" PATTERN "*+Internal.h" EXCLUDE)
endforeach()
install(FILES ${ZM_GENERATED_INCLUDEDIR}/ZMChatRoom/ZMChatRoomVersion.h
        DESTINATION ${ZM_INSTALL_INCLUDEDIR}/ZMChatRoom
        COMPONENT ZMChatRoom_Development)
install(DIRECTORY ${ZM_ROOT}/CoreEmulator/
        DESTINATION ${ZM_INSTALL_EMULATOR_INCLUDEDIR}/CoreEmulator
        COMPONENT ZMChatRoom_CoreEmulator
        FILES_MATCHING PATTERN "*.h" PATTERN "*+Internal.h" EXCLUDE)
install(DIRECTORY ${ZM_ROOT}/TestKit/ZMChatRoomTestKit/
        DESTINATION ${ZM_INSTALL_TESTKIT_INCLUDEDIR}/ZMChatRoomTestKit
        COMPONENT ZMChatRoom_CoreEmulator
        FILES_MATCHING PATTERN "*.h")

install(EXPORT ZMChatRoomTargets
        NAMESPACE ZMChatRoom::
        DESTINATION ${ZM_CMAKE_DIR}
        COMPONENT ZMChatRoom_Development)
install(EXPORT ZMChatRoomCoreEmulatorTargets
        NAMESPACE ZMChatRoom::
        DESTINATION ${ZM_CMAKE_DIR}
        COMPONENT ZMChatRoom_CoreEmulator)

configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/ZMChatRoomConfig.cmake.in
                              ${CMAKE_CURRENT_BINARY_DIR}/ZMChatRoomConfig.cmake
                              INSTALL_DESTINATION ${ZM_CMAKE_DIR})
# Before 1.0 a minor version may change the interface: only the same
# major.minor (and a patch at least as new) satisfies a request.
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/ZMChatRoomConfigVersion.cmake
                                 COMPATIBILITY SameMinorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/ZMChatRoomConfig.cmake
              ${CMAKE_CURRENT_BINARY_DIR}/ZMChatRoomConfigVersion.cmake
        DESTINATION ${ZM_CMAKE_DIR}
        COMPONENT ZMChatRoom_Development)

# pkg-config files, relocatable: paths relative to the file's own directory,
# so that `cmake --install --prefix` anywhere gives working files.
function(_zm_pc_path out path)
  if(IS_ABSOLUTE "${path}")
    set(${out} "${path}" PARENT_SCOPE)
  else()
    set(${out} "\${prefix}/${path}" PARENT_SCOPE)
  endif()
endfunction()
if(IS_ABSOLUTE "${ZM_PKGCONFIG_DIR}")
  set(ZM_PC_PREFIX "${CMAKE_INSTALL_PREFIX}")
else()
  file(RELATIVE_PATH ZM_PC_PREFIX "/zm-prefix/${ZM_PKGCONFIG_DIR}" "/zm-prefix")
  string(REGEX REPLACE "/$" "" ZM_PC_PREFIX "${ZM_PC_PREFIX}")
  set(ZM_PC_PREFIX "\${pcfiledir}/${ZM_PC_PREFIX}")
endif()
_zm_pc_path(ZM_PC_LIBDIR "${CMAKE_INSTALL_LIBDIR}")
_zm_pc_path(ZM_PC_INCLUDEDIR "${ZM_INSTALL_INCLUDEDIR}")
_zm_pc_path(ZM_PC_EMULATOR_INCLUDEDIR "${ZM_INSTALL_EMULATOR_INCLUDEDIR}")
_zm_pc_path(ZM_PC_TESTKIT_INCLUDEDIR "${ZM_INSTALL_TESTKIT_INCLUDEDIR}")
foreach(pc IN ITEMS zmchatroom zmchatroom-emulator zmchatroom-testkit)
  configure_file(${CMAKE_CURRENT_LIST_DIR}/${pc}.pc.in ${CMAKE_CURRENT_BINARY_DIR}/${pc}.pc @ONLY)
endforeach()
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/zmchatroom.pc
        DESTINATION ${ZM_PKGCONFIG_DIR}
        COMPONENT ZMChatRoom_Development)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/zmchatroom-emulator.pc ${CMAKE_CURRENT_BINARY_DIR}/zmchatroom-testkit.pc
        DESTINATION ${ZM_PKGCONFIG_DIR}
        COMPONENT ZMChatRoom_CoreEmulator)
