% read_k7.m: the points of a scan: their number, their box and mean range. Call read_k7('FILE.k7').
%
% Every column of a grid is one dataset, '/Slice_0/OPP/Range' and so on. An echo of the grid "OPP" belongs to the shot of the
% grid "Shots" that has exactly its time, and its point is the shot's origin + range * direction, in the scanner's own
% coordinates. Arrays come with their dimensions turned: points as 3 x rows, waveforms as samples x rows.
%
% MATLAB reads with h5read. Octave has no h5read and reads the same columns as netCDF variables: octave-netcdf.
function read_k7(path)
  if ~exist('h5read', 'file') && ~exist('h5read', 'builtin')
    pkg load netcdf
  end
  time = whole(path, '/Slice_0/Shots/GPSTime');
  origin = whole(path, '/Slice_0/Shots/Positions');
  direction = whole(path, '/Slice_0/Shots/Waveforms.DirectionDelta');
  echo_time = whole(path, '/Slice_0/OPP/GPSTime');
  range = whole(path, '/Slice_0/OPP/Range');
  [found, shot] = ismember(echo_time, time);
  assert(all(found));
  points = origin(:, shot) + range(:)' .* direction(:, shot);
  printf_line('%d shots', numel(time));
  printf_line('%d points, mean range %.3f m', numel(range), mean(range));
  printf_line('from %.3f %.3f %.3f m to %.3f %.3f %.3f m', min(points, [], 2), max(points, [], 2));
  first = rows(path, '/Slice_0/OPP/Range', 1, 5);
  printf_line('first ranges:%s m', sprintf(' %.3f', first));
end

function values = whole(path, name)
  if exist('h5read', 'file') || exist('h5read', 'builtin')
    values = h5read(path, name);
  else
    values = ncread(path, name);
  end
end

% Rows of a column of single values, counted from 1.
function values = rows(path, name, first, count)
  if exist('h5read', 'file') || exist('h5read', 'builtin')
    values = h5read(path, name, first, count);
  else
    values = ncread(path, name, first, count);
  end
end

function printf_line(varargin)
  fprintf('%s\n', sprintf(varargin{:}));
end
