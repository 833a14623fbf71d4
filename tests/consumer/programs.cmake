# The application and its test, and both run.
add_executable(application ${CMAKE_CURRENT_LIST_DIR}/application.cc)
target_link_libraries(application PRIVATE quarlo::input_loop quarlo::stderr_logging)
add_executable(typed_text_test ${CMAKE_CURRENT_LIST_DIR}/typed_text_test.cc)
target_link_libraries(typed_text_test PRIVATE quarlo::sim quarlo::input_loop quarlo::stderr_logging)

enable_testing()
add_test(NAME Application.SaysThatThereIsNoInputDevice COMMAND application /nowhere/mouse /nowhere/keyboard /nowhere/lircd)
set_tests_properties(Application.SaysThatThereIsNoInputDevice PROPERTIES PASS_REGULAR_EXPRESSION "no input device")
add_test(NAME TypedText.IsWhatWasTyped COMMAND typed_text_test)
