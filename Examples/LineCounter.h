// A component that logs. It knows nothing of where its statements go.
//
// It may log from any thread, as often as it likes: what nobody asked for is neither evaluated nor formatted. Texts are
// UTF-8, wide ones too once they are behind a narrow format. It logs no secrets, as it can't tell who reads them.
#pragma once

#include <Brindle/Vok/FileSystemV2.h>
#include <Brindle/Vok/Log.h>

#include <algorithm>
#include <string>
#include <vector>

/// Logs the number of lines in each file. False if one couldn't be read.
inline bool CountLines(std::vector<Brindle::Vok::Path> const& files)
{
    VOK_LOG_SCOPE("{} files", files.size()); // at trace: here, and when this function is left
    std::size_t counted = 0;
    for (Brindle::Vok::Path const& file : files)
        try
        {
            std::string const text = Brindle::Vok::V2::MakeFileSystem()->MakeFile(file)->ReadAllTextA();
            if (text.empty())
                VOK_LOG(warning, "[{}] is empty", file);
            else
                VOK_LOG(info, "[{}] has {} lines", file, std::ranges::count(text, '\n'));
            ++counted;
        }
        catch (Brindle::Vok::Error const& failure)
        {
            VOK_LOG(error, "not counted: {}", failure.Message());
        }
    if (counted == 0)
        VOK_LOG(critical, "none of {} files could be counted", files.size());
    return counted == files.size();
}
