# Runs while `cmake --install` does: links to the programs, the bus' service files and policy, the systemd unit, the
# polkit actions, the man page and the shell completions.
# Below /opt they go to the places where each is looked for; below any other prefix they stay below it, and a person
# who wants them found says so to the bus, to systemd and so on. DESTDIR stands before every path, as it should.
set(KAVARO_PROGRAMS ${CMAKE_INSTALL_PREFIX}/Kavaro.app/Contents/Linux)
if(CMAKE_INSTALL_PREFIX STREQUAL "/opt")
  set(local /usr/local)
  set(policies /etc/dbus-1/system.d)
  set(actions /usr/share/polkit-1/actions) # the only place that every version of polkit reads
else()
  set(local ${CMAKE_INSTALL_PREFIX})
  set(policies ${local}/share/dbus-1/system.d)
  set(actions ${local}/share/polkit-1/actions)
endif()

# install_configured(TEMPLATE PATH): fills in where the programs are.
function(install_configured template path)
  message(STATUS "Installing: $ENV{DESTDIR}${path}")
  configure_file(${KAVARO_PACKAGING}/${template} $ENV{DESTDIR}${path} @ONLY
    FILE_PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)
endfunction()

# install_generated(FORMAT PATH): what the client writes from its own options.
function(install_generated format path)
  message(STATUS "Installing: $ENV{DESTDIR}${path}")
  get_filename_component(folder $ENV{DESTDIR}${path} DIRECTORY)
  file(MAKE_DIRECTORY ${folder})
  execute_process(COMMAND $ENV{DESTDIR}${KAVARO_PROGRAMS}/kavaro --generate ${format}
    OUTPUT_FILE $ENV{DESTDIR}${path} RESULT_VARIABLE result)
  if(NOT result EQUAL 0)
    message(FATAL_ERROR "kavaro --generate ${format} failed: ${result}")
  endif()
endfunction()

foreach(program IN ITEMS kavaro kavarod)
  set(link ${local}/bin/${program})
  file(RELATIVE_PATH target ${local}/bin ${KAVARO_PROGRAMS}/${program})
  message(STATUS "Installing: $ENV{DESTDIR}${link} -> ${target}")
  file(MAKE_DIRECTORY $ENV{DESTDIR}${local}/bin)
  file(CREATE_LINK ${target} $ENV{DESTDIR}${link} SYMBOLIC)
endforeach()

set(service org.kavaro.Kavaro.server)
install_configured(dbus/${service}.session.service.in ${local}/share/dbus-1/services/${service}.service)
install_configured(dbus/${service}.system.service.in ${local}/share/dbus-1/system-services/${service}.service)
install_configured(dbus/org.kavaro.Kavaro.conf ${policies}/org.kavaro.Kavaro.conf)
install_configured(systemd/kavarod.service.in ${local}/lib/systemd/system/kavarod.service)
install_configured(polkit/org.kavaro.Kavaro.policy ${actions}/org.kavaro.Kavaro.policy)

install_generated(man ${local}/share/man/man1/kavaro.1)
install_generated(bash ${local}/share/bash-completion/completions/kavaro)
install_generated(zsh ${local}/share/zsh/site-functions/_kavaro)
install_generated(fish ${local}/share/fish/vendor_completions.d/kavaro.fish)
