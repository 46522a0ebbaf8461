# julia read_k7.jl FILE.k7: the points of a scan with HDF5.jl: their number, their box and mean range.
#
# Every column of a grid is one dataset, "/Slice_0/OPP/Range" and so on. An echo of the grid "OPP" belongs to the shot of the
# grid "Shots" that has exactly its time, and its point is the shot's origin + range * direction, in the scanner's own
# coordinates. Arrays come with their dimensions turned: points as 3 x rows, waveforms as samples x rows.
#
# Unlike the other examples, this one is not run by the tests.
using HDF5
using Printf
using Statistics

function main(path)
    h5open(path, "r") do file
        shots, echoes = file["Slice_0/Shots"], file["Slice_0/OPP"]
        time, origin = read(shots["GPSTime"]), read(shots["Positions"])
        direction = read(shots["Waveforms.DirectionDelta"])
        range = read(echoes["Range"])
        shot = searchsortedfirst.(Ref(time), read(echoes["GPSTime"]))
        points = origin[:, shot] .+ range' .* direction[:, shot]
        @printf("%d shots\n", length(time))
        @printf("%d points, mean range %.3f m\n", length(range), mean(range))
        low, high = minimum(points; dims=2), maximum(points; dims=2)
        @printf("from %.3f %.3f %.3f m to %.3f %.3f %.3f m\n", low..., high...)
        # A slice of a dataset reads only those rows.
        println("first ranges: ", echoes["Range"][1:5], " m")
    end
end

main(ARGS[1])
