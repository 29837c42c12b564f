// Frames that the real Claude Code (2.1) wrote, with what is of no interest here (counts of tokens,
// lists of tools, paths) taken out and the ids of one tool call made to match. All are of the
// session "s1".
#pragma once

namespace vantrell::tests::claude_frames {

/// Each turn begins with one.
inline constexpr const char* initOfATurn =
    R"frame({"type":"system","subtype":"init","session_id":"s1","mcp_servers":[],"model":"claude-sonnet-5","permissionMode":"default","apiKeySource":"none","claude_code_version":"2.1.197","output_style":"default","analytics_disabled":true,"product_feedback_disabled":true})frame";
inline constexpr const char* thinkingDelta =
    R"frame({"type":"stream_event","event":{"index":0,"delta":{"type":"thinking_delta","thinking":"hm"},"type":"content_block_delta"},"session_id":"s1","parent_tool_use_id":null})frame";
/// The same once more, whole.
inline constexpr const char* thinkingWhole =
    R"frame({"type":"assistant","message":{"id":"msg_d072eb6fa8424705","type":"message","role":"assistant","model":"claude-sonnet-5","content":[{"type":"thinking","thinking":"hm hm","signature":"c3RhbmQtaW4="}],"stop_reason":null,"stop_sequence":null},"parent_tool_use_id":null,"session_id":"s1"})frame";
inline constexpr const char* textDelta =
    R"frame({"type":"stream_event","event":{"index":1,"delta":{"type":"text_delta","text":"hello "},"type":"content_block_delta"},"session_id":"s1","parent_tool_use_id":null})frame";
/// The same once more, whole.
inline constexpr const char* textWhole =
    R"frame({"type":"assistant","message":{"id":"msg_d072eb6fa8424705","type":"message","role":"assistant","model":"claude-sonnet-5","content":[{"type":"text","text":"hello there my friend"}],"stop_reason":null,"stop_sequence":null},"parent_tool_use_id":null,"session_id":"s1"})frame";
inline constexpr const char* turnResult =
    R"frame({"type":"result","subtype":"success","is_error":false,"api_error_status":null,"num_turns":1,"result":"hello there my friend","stop_reason":"end_turn","session_id":"s1","permission_denials":[],"terminal_reason":"completed"})frame";
/// A tool call begins; its input is still to come.
inline constexpr const char* toolStart =
    R"frame({"type":"stream_event","event":{"index":0,"content_block":{"type":"tool_use","id":"toolu_abd0b272c8414e45","name":"Bash","input":{}},"type":"content_block_start"},"session_id":"s1","parent_tool_use_id":null})frame";
inline constexpr const char* inputDelta =
    R"frame({"type":"stream_event","event":{"index":0,"delta":{"type":"input_json_delta","partial_json":"{\"command\": \"to"},"type":"content_block_delta"},"session_id":"s1","parent_tool_use_id":null})frame";
inline constexpr const char* toolWhole =
    R"frame({"type":"assistant","message":{"id":"msg_ee4ace8258d24a7f","type":"message","role":"assistant","model":"claude-sonnet-5","content":[{"type":"tool_use","id":"toolu_abd0b272c8414e45","name":"Bash","input":{"command":"touch yes.txt","description":"run a command"}}],"stop_reason":null,"stop_sequence":null},"parent_tool_use_id":null,"session_id":"s1"})frame";
inline constexpr const char* toolQuestion =
    R"frame({"type":"control_request","request_id":"683e17bd-2054-4404-b19e-4a7def42338f","request":{"subtype":"can_use_tool","tool_name":"Bash","display_name":"Bash","input":{"command":"touch yes.txt","description":"run a command"},"description":"run a command","blocked_path":"/project/yes.txt","tool_use_id":"toolu_abd0b272c8414e45"}})frame";
/// The end of a call comes as a message of the user.
inline constexpr const char* toolResult =
    R"frame({"type":"user","message":{"role":"user","content":[{"tool_use_id":"toolu_abd0b272c8414e45","type":"tool_result","content":"(Bash completed with no output)","is_error":false}]},"parent_tool_use_id":null,"session_id":"s1","tool_use_result":{"stdout":"","stderr":"","interrupted":false,"isImage":false,"noOutputExpected":true}})frame";
inline constexpr const char* toolDenied =
    R"frame({"type":"user","message":{"role":"user","content":[{"type":"tool_result","content":"Denied by the user in vantrell.","is_error":true,"tool_use_id":"toolu_abd0b272c8414e45"}]},"parent_tool_use_id":null,"session_id":"s1","tool_use_result":"Error: Denied by the user in vantrell."})frame";
/// Claude Code no longer waits for an answer.
inline constexpr const char* questionWithdrawn =
    R"frame({"type":"control_cancel_request","request_id":"683e17bd-2054-4404-b19e-4a7def42338f"})frame";
inline constexpr const char* interruptedText =
    R"frame({"type":"user","message":{"role":"user","content":[{"type":"text","text":"[Request interrupted by user]"}]},"parent_tool_use_id":null,"session_id":"s1"})frame";
/// An interrupted turn ends as an error.
inline constexpr const char* interruptedResult =
    R"frame({"type":"result","subtype":"error_during_execution","is_error":true,"num_turns":2,"stop_reason":null,"session_id":"s1","permission_denials":[],"terminal_reason":"aborted_streaming","errors":["[ede_diagnostic] result_type=user last_content_type=n/a stop_reason=null"]})frame";
inline constexpr const char* limitAllowed =
    R"frame({"type":"rate_limit_event","rate_limit_info":{"status":"allowed","resetsAt":1795398052,"rateLimitType":"five_hour","overageStatus":"rejected","overageDisabledReason":"out_of_credits","isUsingOverage":false},"session_id":"s1"})frame";
inline constexpr const char* limitNear =
    R"frame({"type":"rate_limit_event","rate_limit_info":{"status":"allowed_warning","resetsAt":1795398054,"rateLimitType":"five_hour","utilization":0.91,"isUsingOverage":false,"surpassedThreshold":0.9},"session_id":"s1"})frame";
inline constexpr const char* limitReached =
    R"frame({"type":"rate_limit_event","rate_limit_info":{"status":"rejected","resetsAt":1795398054,"rateLimitType":"five_hour","overageStatus":"rejected","overageDisabledReason":"out_of_credits","isUsingOverage":false},"session_id":"s1"})frame";
/// Text that is not streamed comes only whole.
inline constexpr const char* limitText =
    R"frame({"type":"assistant","message":{"id":"df4cbaab-d23e-4e7b-87aa-e87e1e5f1bbd","model":"<synthetic>","role":"assistant","stop_reason":"stop_sequence","stop_sequence":"","type":"message","content":[{"type":"text","text":"You've hit your session limit · resets 1:40am (UTC)"}]},"parent_tool_use_id":null,"session_id":"s1","error":"rate_limit","request_id":"req_standin"})frame";
inline constexpr const char* limitResult =
    R"frame({"type":"result","subtype":"success","is_error":true,"api_error_status":429,"num_turns":1,"result":"You've hit your session limit · resets 1:40am (UTC)","stop_reason":"stop_sequence","session_id":"s1","permission_denials":[],"terminal_reason":"completed"})frame";
inline constexpr const char* loginResult =
    R"frame({"type":"result","subtype":"success","is_error":true,"api_error_status":401,"num_turns":1,"result":"Failed to authenticate. API Error: 401 Invalid bearer token","stop_reason":"stop_sequence","session_id":"s1","permission_denials":[],"terminal_reason":"completed"})frame";
inline constexpr const char* backgroundStarted =
    R"frame({"type":"system","subtype":"task_started","task_id":"bs25dsxhs","tool_use_id":"toolu_f57e1187c0874065","description":"slow thing","task_type":"local_bash","session_id":"s1"})frame";
/// The status lies under "patch".
inline constexpr const char* backgroundUpdated =
    R"frame({"type":"system","subtype":"task_updated","task_id":"bs25dsxhs","patch":{"status":"completed","end_time":1795394558822},"session_id":"s1"})frame";
inline constexpr const char* backgroundNotified =
    R"frame({"type":"system","subtype":"task_notification","task_id":"bs25dsxhs","tool_use_id":"toolu_f57e1187c0874065","status":"completed","output_file":"/outputs/bs25dsxhs.output","summary":"Background command \"slow thing\" completed (exit code 0)","session_id":"s1"})frame";
/// Ends a turn that Claude Code began by itself.
inline constexpr const char* resultOfItsOwn =
    R"frame({"type":"result","subtype":"success","is_error":false,"api_error_status":null,"num_turns":1,"result":"DONE: Command running in background with ID: bs25dsxhs. Output is being written to: /outputs/bs25dsxhs.output. You will be notified when it completes. To check interim output, use Read on that file path.","stop_reason":"end_turn","session_id":"s1","permission_denials":[],"terminal_reason":"completed","origin":{"kind":"task-notification"}})frame";
/// Comes without a prompt, and the process ends.
inline constexpr const char* resumeFailed =
    R"frame({"type":"result","subtype":"error_during_execution","is_error":true,"num_turns":0,"stop_reason":null,"session_id":"s1","permission_denials":[],"errors":["No conversation found with session ID: ef6a98a0-08c7-4255-8c8d-d03563ef1626"]})frame";

}  // namespace vantrell::tests::claude_frames
