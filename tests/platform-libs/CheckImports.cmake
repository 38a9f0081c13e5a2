# SPDX-License-Identifier: MIT
# Fails when a library imports a function that is not known to be safe in a signal handler: whoever
# adds a lock, an allocation or a stream to it adds an import. Sanitizer builds bring names of
# their own.
set(system "clock_gettime|close|dup3|fcntl|fstat|ioctl|isatty|open|poll|pthread_setcancelstate|stat"
    "send|write")
# timer_create is no more than a system call unless the timer is to start threads.
set(timers "sigaction|sigfillset|sigdelset|pthread_sigmask|__libc_current_sigrt(min|max)|gettid"
    "timer_create|timer_settime|timer_delete")
set(memory "memchr|memcmp|memcpy|memmove|memset|strlen")
set(texts "getenv|strerrordesc_np")
set(wide "__(clock_gettime|fcntl|fstat|ioctl|stat|timer_settime)(64|_time64|64_time64)"
    "fcntl64|open64|fstat64|stat64")
set(fortified "__(memcpy|memmove|memset|poll)_chk|__open64_2|__open_2|__poll_chk")
set(compiler "__errno_location|__stack_chk_(fail|guard)|__cxa_finalize|__gmon_start__|_ITM_.*")
# The last two end the process when an exception leaves a destructor.
set(unwinding "_Unwind_Resume|__(gxx|gcc)_personality_v0|__cxa_end_cleanup|__cxa_call_terminate"
    "__cxa_begin_catch|_ZSt9terminatev")
set(arm "__aeabi_.*")
# Tables of types are data; clang's undefined-behaviour checks compare them.
set(sanitizers "__(asan|lsan|tsan|ubsan|sanitizer|interceptor)_.*|__st(art|op)_asan.*|_ZT[IVS].*")
set(allowed ${system} ${timers} ${memory} ${texts} ${wide} ${fortified} ${compiler} ${unwinding} ${arm}
            ${sanitizers})
list(JOIN allowed "|" allowed)

execute_process(COMMAND ${NM} --dynamic --undefined-only ${LIBRARY}
                OUTPUT_VARIABLE listing COMMAND_ERROR_IS_FATAL ANY)
string(REGEX MATCHALL "[UwvV] [^\n]+" entries "${listing}")
set(seen 0)
set(foreign "")
foreach(entry IN LISTS entries)
  string(REGEX REPLACE "^[UwvV] ([^@]+).*$" "\\1" name "${entry}")
  if(name STREQUAL "write")
    set(seen 1)
  endif()
  if(NOT name MATCHES "^(${allowed})$")
    list(APPEND foreign ${name})
  endif()
endforeach()
if(NOT seen)
  message(FATAL_ERROR "${LIBRARY}: no import of write; is this the right library?\n${listing}")
endif()
if(foreign)
  message(FATAL_ERROR "${LIBRARY} imports what may not run in a signal handler: ${foreign}")
endif()
